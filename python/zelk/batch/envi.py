"""ENVI cubes read line by line, by the rules `zelk run` follows: the header's fields by
their exact names, the data file found by the naming conventions beside the header, a
short data file refused, and every line handed out as floats, band after band."""

import os
import re

import numpy as np

# ENVI data type codes that are read, as numpy types of one byte order.
_TYPES = {1: "u1", 2: "i2", 4: "f4", 5: "f8", 12: "u2"}
_INTERLEAVES = {"bip": 1, "bil": 2, "bsq": 3, "": 3}


class EnviError(ValueError):
    """A cube that cannot be read as it is; the text says what to fix."""


def header_field(text, key):
    """The value of header field `key` (any case, spaces as any blanks): the text inside
    its braces or the rest of its line; None when the header lacks it."""
    name = r"[ \t]+".join(re.escape(word) for word in key.split())
    m = re.search(rf"^[ \t]*{name}[ \t]*=[ \t]*(\{{[^}}]*\}}|[^\r\n]*)", text, re.I | re.M)
    if not m:
        return None
    value = m.group(1).strip()
    return value[1:-1].strip() if value.startswith("{") else value


def header_of(path):
    """The header of a cube named by its header or its data file; None when there is none."""
    path = os.fspath(path)
    if path.lower().endswith(".hdr"):
        return path if os.path.isfile(path) else None
    base = os.path.splitext(path)[0]
    for candidate in (path + ".hdr", path + ".HDR", base + ".hdr", base + ".HDR"):
        if os.path.isfile(candidate):
            return candidate
    return None


def _data_file(header, size, interleave):
    """The data file beside `header`: the first that exists of the names the conventions
    give, else the one file of the header's base name that has exactly `size` bytes."""
    stem = header[:-4]
    base = os.path.splitext(stem)[0]
    names = [stem, base]
    for extension in ("raw", "img", "dat", "bin", interleave):
        names += [f"{base}.{extension}", f"{base}.{extension.upper()}"]
    for name in dict.fromkeys(names):
        if name != header and os.path.isfile(name):
            if os.path.getsize(name) < size:
                raise EnviError(f"the data file {name} is too short: it holds {os.path.getsize(name)} bytes, "
                                f"the header {header} describes {size}")
            return name
    folder, prefix = os.path.split(base)
    found = [
        os.path.join(folder, entry) for entry in sorted(os.listdir(folder or "."))
        if entry.startswith(prefix) and not entry.lower().endswith(".hdr")
        and os.path.isfile(os.path.join(folder, entry)) and os.path.getsize(os.path.join(folder, entry)) == size
        and os.path.splitext(entry)[1].lower() not in {".bil", ".bip", ".bsq"} - {"." + interleave}
        and header_of(os.path.join(folder, entry)) in (None, header)
    ]
    if len(found) == 1:
        return found[0]
    if not found:
        raise EnviError(f"{header} has no data file: none of {', '.join(os.path.basename(n) for n in dict.fromkeys(names))} "
                        f"exists, and no other file beside it holds {size} bytes")
    raise EnviError(f"{header} has no data file by name, and {len(found)} files beside it hold its {size} bytes "
                    f"({', '.join(found)}): rename its data file to {stem}")


class EnviCube:
    """An ENVI cube on disk, mapped rather than read, so that a recording of gigabytes
    never has to fit in memory. `path` names its header or its data file."""

    def __init__(self, path):
        path = os.fspath(path)
        self.header_path = header_of(path)
        if self.header_path is None:
            raise EnviError(f"{path} has no header: neither it ends in .hdr nor {path}.hdr or a .hdr of its base name exists")
        try:
            with open(self.header_path, encoding="latin-1") as f:
                text = f.read()
        except OSError as e:
            raise EnviError(f"cannot read the header {self.header_path}: {e.strerror}") from None
        where = self.header_path

        def whole(key, default=None):
            value = header_field(text, key)
            if value is None and default is not None:
                return default
            if value is None or not re.fullmatch(r"[+-]?\d+", value):
                raise EnviError(f"{where} does not give '{key}' as a whole number")
            return int(value)

        self.samples, self.lines, self.bands = whole("samples"), whole("lines"), whole("bands")
        if min(self.samples, self.lines, self.bands) < 1:
            raise EnviError(f"{where} does not give samples, lines and bands above 0")
        self.data_type = whole("data type")
        if self.data_type not in _TYPES:
            raise EnviError(f"{where}: data type {self.data_type} is not read here (1, 2, 4, 5 and 12 are)")
        word = (header_field(text, "interleave") or "").split(" ")[0].lower()
        if word not in _INTERLEAVES:
            raise EnviError(f"{where}: interleave '{word}' is none of bip, bil and bsq")
        self.interleave = _INTERLEAVES[word]
        self.big_endian = whole("byte order", 0) == 1
        self.offset = max(0, whole("header offset", 0))

        listed = header_field(text, "wavelength")
        self.wavelengths = []
        for part in filter(None, (p.strip() for p in (listed or "").split(","))):
            try:
                self.wavelengths.append(float(part))
            except ValueError:
                raise EnviError(f"{where}: the wavelength '{part}' is not a number") from None
        if self.wavelengths and len(self.wavelengths) != self.bands:
            raise EnviError(f"{where} lists {len(self.wavelengths)} wavelengths for {self.bands} bands")
        self.wavelength_units = header_field(text, "wavelength units") or ""

        def number(key):
            value = header_field(text, key)
            if value is None:
                return None
            try:
                return float(value)
            except ValueError:
                raise EnviError(f"{where}: '{key} = {value}' is not a number") from None

        self.reflectance_scale = number("reflectance scale factor") or 0.0
        if self.reflectance_scale < 0 or not np.isfinite(self.reflectance_scale):
            raise EnviError(f"{where}: the reflectance scale factor {self.reflectance_scale} is not a positive number")
        self.ignore_value = number("data ignore value")

        dtype = np.dtype(_TYPES[self.data_type]).newbyteorder(">" if self.big_endian else "<")
        size = self.offset + self.samples * self.lines * self.bands * dtype.itemsize
        name = {1: "bip", 2: "bil", 3: "bsq"}[self.interleave]
        if self.header_path != path:
            self.data_path = path
            if os.path.getsize(path) < size:
                raise EnviError(f"the data file {path} is too short: it holds {os.path.getsize(path)} bytes, "
                                f"the header {where} describes {size}")
        else:
            self.data_path = _data_file(self.header_path, size, name)
        shape = {1: (self.lines, self.samples, self.bands), 2: (self.lines, self.bands, self.samples),
                 3: (self.bands, self.lines, self.samples)}[self.interleave]
        self._data = np.memmap(self.data_path, dtype=dtype, mode="r", offset=self.offset, shape=shape)

    @property
    def counts_only(self):
        """Whether the samples are whole numbers that unsigned 16 bits carry."""
        return self.data_type in (1, 2, 12)

    def line(self, index):
        """Line `index` as float32, bands x samples, as stored (no scale factor applied)."""
        if self.interleave == 1:
            block = self._data[index].T
        elif self.interleave == 2:
            block = self._data[index]
        else:
            block = self._data[:, index, :]
        return np.array(block, dtype=np.float32)
