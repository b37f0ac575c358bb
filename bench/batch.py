"""zelk-batch's throughput on this machine: N copies of one synthetic recording through
a local cluster of one worker, then of two (or --workers) worker processes, timed from
the first task's submission to the last result (the cluster started beforehand).

    ZELK_LIBRARY=build/plain/libzelk.so PYTHONPATH=python /usr/bin/python3 bench/batch.py [--copies 8]
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from zelk.batch import cluster



def copies(directory, count):
    """`count` recordings that share the data of one scene: links named copy-K."""
    recordings = []
    for k in range(count):
        for ext in (".hdr", ".bin"):
            os.symlink(directory / f"scene{ext}", directory / f"copy-{k}{ext}")
        recordings.append({"cube": str(directory / f"copy-{k}.hdr"), "white": str(directory / "whiteReference.hdr"),
                           "dark": str(directory / "darkReference.hdr")})
    return recordings


def throughput(model, recordings, workers):
    client = cluster.connect(workers=workers)
    try:
        start = time.perf_counter()
        results = cluster.run_tasks(client, cluster.recording_tasks(model, recordings),
                                    [str(i) for i in range(len(recordings))], progress=None)
        seconds = time.perf_counter() - start
    finally:
        cluster.close(client)
    failed = [r["message"] for r in results if r["status"] != "ok"]
    if failed:
        sys.exit(f"bench/batch.py: a recording failed: {failed[0]}")
    return sum(r["frames"] for r in results) / seconds


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--copies", type=int, default=8)
    parser.add_argument("--workers", type=int, default=2)
    parser.add_argument("--lines", type=int, default=2000)
    args = parser.parse_args()
    scene = Path(os.environ["ZELK_LIBRARY"]).resolve().parent / "tools" / "zelk-scene"
    with tempfile.TemporaryDirectory() as tmp:
        directory = Path(tmp)
        subprocess.run([str(scene), tmp, "--width", "320", "--lines", str(args.lines), "--bands", "96"], check=True,
                       stdout=subprocess.DEVNULL)
        recordings = copies(directory, args.copies)
        one = throughput(directory / "model.zelk", recordings, 1)
        many = throughput(directory / "model.zelk", recordings, args.workers)
    print(f"{args.copies} recordings of 320 px x {args.lines} lines x 96 bands")
    print(f"1 worker: {one:.0f} frames/s")
    print(f"{args.workers} workers: {many:.0f} frames/s ({many / one:.2f} x)")


if __name__ == "__main__":
    main()
