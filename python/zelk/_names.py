"""The names that the library's public header gives to codes and to the positions of an
object record, read from that header (shipped in this package as zelk.h), so that the
binding holds no copy of them."""

import re
from pathlib import Path


def _read():
    text = Path(__file__).with_name("zelk.h").read_text(encoding="utf-8")
    return {m[1]: int(m[2]) for m in re.finditer(r"\b(ZELK_[A-Z0-9_]+) = (-?\d+)", text)}


_ALL = _read()

#: Failure codes by name without the prefix, e.g. CODES["NO_PROJECT"] == -103.
CODES = {name[len("ZELK_E_"):]: value for name, value in _ALL.items() if name.startswith("ZELK_E_")}

#: Positions in an object record by name, e.g. RECORD["PIXEL_COUNT"] == 7, with the
#: record's length (RECORD_INTS) and its per-class counters (CLASS_SLOTS).
RECORD = {name[len("ZELK_OBJ_"):]: value for name, value in _ALL.items() if name.startswith("ZELK_OBJ_")}
