"""zelk-batch: a model over an archive of recordings, one Dask task per recording.

    from zelk import batch
    recordings = batch.find_recordings(["day1/*.hdr"])   # references and truths beside them
    tables = batch.run(model, recordings, out="report")  # or scheduler="tcp://host:8786"

Each task runs a handle over one recording, frame by frame as `zelk run` does, and hands
back its objects, pixels per decision, rejected share and speed; a recording that fails
comes back with the library's code and text while the others go on. The tables are
written into `out`: objects, recordings, classes and, where truths exist, matches and
the confusion matrix, with report.html and its pictures.
"""

import glob
import os
import sys

from . import cluster, report, tables, truth

REFERENCE_NAMES = ("whiteReference", "darkReference")


def _beside(cube, *names):
    """The first of `names` that exists in the cube's directory, else None."""
    folder = os.path.dirname(os.path.abspath(cube))
    for name in names:
        if os.path.isfile(os.path.join(folder, name)):
            return os.path.join(folder, name)
    return None


def find_recordings(patterns, white=None, dark=None, references_beside=True):
    """The recordings named by cube headers or glob patterns, in that order, each a dict
    of 'cube', 'white', 'dark' and 'truth'. References are `white` and `dark` when
    given, else whiteReference.hdr and darkReference.hdr beside the cube; the truth is
    STEM_truth.csv or truth.csv beside it. A pattern that matches nothing is refused; a
    recording named twice is taken once, so that nothing is counted twice."""
    recordings, seen = [], set()
    for pattern in patterns:
        paths = sorted(glob.glob(pattern)) if glob.has_magic(pattern) else [pattern]
        paths = [p for p in paths if os.path.splitext(os.path.basename(p))[0] not in REFERENCE_NAMES]
        if not paths or not glob.has_magic(pattern) and not os.path.exists(pattern):
            raise FileNotFoundError(f"{pattern} names no recording")
        for path in paths:
            if os.path.abspath(path) in seen:
                continue
            seen.add(os.path.abspath(path))
            stem = os.path.splitext(os.path.basename(path))[0]
            w, d = white, dark
            if w is None and references_beside:
                w, d = _beside(path, "whiteReference.hdr"), _beside(path, "darkReference.hdr")
                if w is None or d is None:
                    w = d = None
            recordings.append({"cube": path, "white": w, "dark": d, "truth": _beside(path, f"{stem}_truth.csv", "truth.csv")})
    return recordings


def names(recordings):
    """Short unique names: each header's path from the folder all share, without .hdr."""
    paths = [os.path.abspath(r["cube"]) for r in recordings]
    if len(paths) == 1:
        return [os.path.splitext(os.path.basename(paths[0]))[0]]
    common = os.path.commonpath(paths)
    return [os.path.splitext(os.path.relpath(p, common))[0] for p in paths]


def run(model, recordings, out, scheduler=None, workers=None, client=None, progress=True,
        match_distance=truth.MATCH_DISTANCE):
    """Runs `model` over `recordings` (find_recordings) and writes the tables and the
    report into `out`. Uses `client` when given, else connects to `scheduler` or starts
    a local cluster for the run. Returns a dict of the tables by name."""
    os.makedirs(out, exist_ok=True)
    own = client is None
    client = cluster.connect(scheduler, workers) if own else client
    try:
        tasks = cluster.recording_tasks(model, recordings)
        results = cluster.run_tasks(client, tasks, names(recordings), progress=sys.stderr if progress else None)
    finally:
        if own:
            cluster.close(client)
    return write(results, recordings, out, match_distance)


def write(results, recordings, out, match_distance=truth.MATCH_DISTANCE):
    """The tables of `results`, written with the report into `out`."""
    for result, recording in zip(results, recordings):
        result.update({k: recording.get(k) for k in ("white", "dark", "truth")}, cube=recording["cube"])
    objects = tables.objects_table(results)
    classes = tables.class_table(results)
    matches = tables.comparisons(results, objects, match_distance)
    summary = tables.summary_table(results)
    matrix = truth.confusion(matches)
    written = {"objects": objects, "recordings": summary, "classes": classes}
    if not matches.empty:
        written.update(matches=matches, confusion=matrix.reset_index().rename(columns={"material": "truth"}))
    paths = {name: tables.write_table(table, out, name) for name, table in written.items()}
    paths["report"] = report.write(out, summary, classes, matrix)
    written.update(confusion=matrix, paths=paths)
    return written
