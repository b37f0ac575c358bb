"""zelk-batch MODEL CUBE.hdr|GLOB... [--out DIR] [--scheduler tcp://HOST:PORT]: a model over
an archive of recordings on a local or an existing Dask cluster (see zelk.batch)."""

import argparse
import os
import sys

from . import find_recordings, run, truth


def parse(argv):
    parser = argparse.ArgumentParser(
        prog="zelk-batch",
        usage="zelk-batch MODEL CUBE.hdr|GLOB... [--out DIR] [--scheduler tcp://HOST:PORT] [options]",
        description="Runs a model over many ENVI recordings, one Dask task per recording, and writes one objects "
        "table, a summary per recording and per class, the comparison with truths where they exist, and report.html.")
    parser.add_argument("model", help="the model file (.zelk)")
    parser.add_argument("cubes", nargs="+", metavar="CUBE", help="cube headers or glob patterns of them ('day1/*.hdr')")
    parser.add_argument("--white", help="the white reference of every recording (else whiteReference.hdr beside each)")
    parser.add_argument("--dark", help="the dark reference of every recording (else darkReference.hdr beside each)")
    parser.add_argument("--no-references", action="store_true", help="do not look for references beside the cubes")
    parser.add_argument("--out", default="batch", help="the directory of the tables and the report (default: batch)")
    parser.add_argument("--scheduler", help="the address of an existing Dask scheduler, tcp://HOST:PORT "
                        "(default: a local cluster of one worker per core)")
    parser.add_argument("--workers", type=int, help="worker processes of the local cluster (default: one per core)")
    parser.add_argument("--match-distance", type=float, default=truth.MATCH_DISTANCE,
                        help="the largest distance in pixels between a found and a true centroid of one object "
                        f"(default {truth.MATCH_DISTANCE:g})")
    args = parser.parse_args(argv)
    if (args.white is None) != (args.dark is None):
        parser.error("--white and --dark go together")
    if args.workers is not None and (args.workers < 1 or args.scheduler):
        parser.error("--workers takes a number above 0, for the local cluster only")
    if not os.path.isfile(args.model):
        parser.error(f"the model {args.model} does not exist")
    return parser, args


def main(argv=None):
    parser, args = parse(sys.argv[1:] if argv is None else argv)
    try:
        recordings = find_recordings(args.cubes, args.white, args.dark, references_beside=not args.no_references)
    except FileNotFoundError as e:
        parser.error(str(e))
    try:
        result = run(args.model, recordings, args.out, scheduler=args.scheduler, workers=args.workers,
                     match_distance=args.match_distance)
    except ConnectionError as e:
        print(f"zelk-batch: {e}", file=sys.stderr)
        return 2
    summary = result["recordings"]
    ok = summary[summary["status"] == "ok"]
    print(f"recordings: {len(ok)} of {len(summary)} ran, {int(ok['objects'].sum())} objects")
    per_class = result["classes"].groupby("decision", sort=False)["objects"].sum()
    print("objects per class: " + ", ".join(f"{n} {name}" for name, n in per_class.items() if n))
    if "matches" in result:
        matched = int(ok["matched"].sum())
        print(f"against the truths: {int(ok['correct'].sum())} of {matched} matched objects decided right, "
              f"{int(ok['missed'].sum())} missed, {int(ok['extra'].sum())} extra")
    for name, path in result["paths"].items():
        print(f"{name}: {path}")
    return 0 if len(ok) == len(summary) else 1


if __name__ == "__main__":
    sys.exit(main())
