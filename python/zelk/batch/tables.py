"""The archive's tables, from the results of its recordings: all objects, a summary per
recording and per class, and where truths exist the comparison with them."""

import os

import pandas as pd

from . import truth as truths

# seconds and frames_per_s: inside the library's calls, as zelk run states them;
# wall_seconds: the whole task on its worker, reading the recording included.
SUMMARY_COLUMNS = ["recording", "status", "code", "message", "objects", "frames", "seconds", "frames_per_s", "wall_seconds",
                   "rejected_share", "width", "lines", "cube", "white", "dark", "truth", "matched", "correct", "missed",
                   "extra"]


def objects_table(results):
    """Every object of the recordings that ran, with its recording's name first."""
    parts = [pd.DataFrame(r["objects"]).assign(recording=r["recording"]) for r in results if r["status"] == "ok"]
    parts = [p for p in parts if not p.empty]
    if not parts:
        return pd.DataFrame(columns=["recording", "object", "decision", "decision_name"])
    table = pd.concat(parts, ignore_index=True)
    return table[["recording"] + [c for c in table.columns if c != "recording"]]


def class_table(results):
    """Per recording and decision: objects and pixels of that decision."""
    rows = []
    for r in results:
        if r["status"] != "ok":
            continue
        names = pd.Series(r["objects"]["decision_name"], dtype=object)
        for name in list(r["decisions"]) + (["no data"] if "no data" in r["pixels"] else []):
            rows.append({"recording": r["recording"], "decision": name, "objects": int((names == name).sum()),
                         "pixels": r["pixels"].get(name, 0)})
    return pd.DataFrame(rows, columns=["recording", "decision", "objects", "pixels"])


def comparisons(results, objects, distance=truths.MATCH_DISTANCE):
    """The objects of each recording that has a truth against it (truth.compare), with
    the recording's name first; the counts per recording go into its summary."""
    parts = []
    for r in results:
        if r["status"] != "ok" or not r.get("truth"):
            continue
        found = objects[objects["recording"] == r["recording"]]
        table = truths.compare(found, truths.read_truth(r["truth"]), distance)
        r["matched"] = int(table["object"].notna().sum() - (table["material"] == "extra").sum())
        r["correct"] = int(table["correct"].sum())
        r["missed"] = int((table["decision_name"] == "missed").sum())
        r["extra"] = int((table["material"] == "extra").sum())
        parts.append(table.assign(recording=r["recording"]))
    if not parts:
        return pd.DataFrame()
    table = pd.concat(parts, ignore_index=True)
    return table[["recording"] + [c for c in table.columns if c != "recording"]]


def summary_table(results):
    """One row per recording, in the order given: how it went and what it found."""
    rows = []
    for r in results:
        row = {c: r.get(c) for c in SUMMARY_COLUMNS}
        if r["status"] == "ok":
            row["objects"] = len(r["objects"]["object"])
            row["frames_per_s"] = r["frames"] / max(r["seconds"], 1e-9)
        rows.append(row)
    return pd.DataFrame(rows, columns=SUMMARY_COLUMNS)


def write_table(table, directory, name):
    """Writes `table` as Parquet when pyarrow is there, else as CSV; the path written."""
    try:
        import pyarrow  # noqa: F401
    except ImportError:
        path = os.path.join(directory, name + ".csv")
        table.to_csv(path, index=False)
    else:
        path = os.path.join(directory, name + ".parquet")
        table.to_parquet(path, index=False)
    return path
