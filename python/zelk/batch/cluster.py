"""The recordings as tasks on a Dask cluster: an embedded one on this machine (one
worker process per core, one thread each, so one handle per worker and no threads
inside the library), or an existing one named by its scheduler's address."""

import os
import sys

import dask
from distributed import Client, LocalCluster, as_completed
from distributed.scheduler import KilledWorker

from .recording import run_recording

# A worker that dies takes its task with it: the scheduler gives the task to another
# worker once, and a second death fails the recording instead of a whole archive.
ALLOWED_FAILURES = 1


def _limit_failures(dask_scheduler=None):
    dask_scheduler.allowed_failures = ALLOWED_FAILURES


def connect(scheduler=None, workers=None):
    """A client of the cluster at `scheduler` ("tcp://HOST:PORT"), or of a new local
    cluster of `workers` processes (default: one per core) when it is None."""
    # Each worker runs one task at a time; a BLAS below the library takes one core too.
    os.environ["OPENBLAS_NUM_THREADS"] = "1"
    if scheduler:
        client = Client(scheduler)
    else:
        with dask.config.set({"distributed.scheduler.allowed-failures": ALLOWED_FAILURES}):
            cluster = LocalCluster(n_workers=workers or os.cpu_count(), threads_per_worker=1, processes=True,
                                   dashboard_address=None)
        client = Client(cluster)
    client.run_on_scheduler(_limit_failures)
    return client


def close(client):
    """Closes the client, and the local cluster when it started one."""
    cluster = client.cluster
    client.close()
    if cluster is not None:
        cluster.close()


def submit(client, model, recordings):
    """One task per recording (a dict with 'cube' and optionally 'white' and 'dark'),
    keyed by its place in the list: the futures, in the list's order."""
    return [
        client.submit(run_recording, os.path.abspath(model), os.path.abspath(r["cube"]),
                      _absolute(r.get("white")), _absolute(r.get("dark")), key=f"zelk-recording-{i}", pure=False)
        for i, r in enumerate(recordings)
    ]


def _absolute(path):
    return os.path.abspath(path) if path else None


def gather(futures, names, progress=sys.stderr):
    """The result of every task, in the order of `futures`, with one line of progress per
    finished recording. A recording whose workers died is a failed result."""
    results = [None] * len(futures)
    index = {f.key: i for i, f in enumerate(futures)}
    for done, future in enumerate(as_completed(futures), 1):
        i = index[future.key]
        try:
            result = future.result()
        except KilledWorker:
            result = {"cube": None, "status": "failed", "code": None,
                      "message": f"its worker died {ALLOWED_FAILURES + 1} times while running it"}
        result["recording"] = names[i]
        results[i] = result
        if progress:
            print(f"[{done}/{len(futures)}] {_line(result)}", file=progress, flush=True)
    return results


def _line(result):
    if result["status"] != "ok":
        code = "" if result.get("code") is None else f" ({result['code']})"
        return f"{result['recording']}: failed{code}: {result['message']}"
    fps = result["frames"] / max(result["seconds"], 1e-9)
    return f"{result['recording']}: {len(result['objects']['object'])} objects, {fps:.0f} frames/s"
