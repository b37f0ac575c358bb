"""The recordings as tasks on a Dask cluster: an embedded one on this machine (one
worker process per core, one thread each, so one handle per worker and no threads
inside the library), or an existing one named by its scheduler's address."""

import os
import sys
import uuid

import dask
from distributed import Client, LocalCluster, as_completed
from distributed.scheduler import KilledWorker

from .recording import run_recording

# A worker that dies takes its task with it: the scheduler gives the task to another
# worker once, and a second death fails the recording instead of a whole archive. A
# worker holds only the task it runs (saturation 1), so that a death makes no other
# recording suspect.
CONNECT_SECONDS = 10
SCHEDULER_SETTINGS = {"distributed.scheduler.allowed-failures": 1, "distributed.scheduler.worker-saturation": 1.0}
ALLOWED_FAILURES = SCHEDULER_SETTINGS["distributed.scheduler.allowed-failures"]


def _settle(dask_scheduler=None):
    """The settings above on a running scheduler, which read its configuration at its start."""
    dask_scheduler.allowed_failures = ALLOWED_FAILURES
    dask_scheduler.WORKER_SATURATION = SCHEDULER_SETTINGS["distributed.scheduler.worker-saturation"]


def connect(scheduler=None, workers=None):
    """A client of the cluster at `scheduler` ("tcp://HOST:PORT"), or of a new local
    cluster of `workers` processes (default: one per core) when it is None."""
    # Each worker runs one task at a time; a BLAS below the library takes one core too.
    os.environ["OPENBLAS_NUM_THREADS"] = "1"
    if scheduler:
        try:
            client = Client(scheduler, timeout=CONNECT_SECONDS)
        except (OSError, ValueError, TypeError) as e:
            raise ConnectionError(f"cannot reach the Dask scheduler at {scheduler} within {CONNECT_SECONDS} s "
                                  f"({e}); give its address as tcp://HOST:PORT") from None
    else:
        with dask.config.set(SCHEDULER_SETTINGS):
            cluster = LocalCluster(n_workers=workers or os.cpu_count(), threads_per_worker=1, processes=True,
                                   dashboard_address=None)
        client = Client(cluster)
    client.run_on_scheduler(_settle)
    return client


def close(client):
    """Closes the client, and the local cluster when it started one."""
    cluster = client.cluster
    client.close()
    if cluster is not None:
        cluster.close()


def recording_tasks(model, recordings):
    """The task of each recording (a dict with 'cube' and optionally 'white' and 'dark'):
    run_recording and its arguments, as absolute paths that every worker can open."""
    model = os.path.abspath(model)
    return [(run_recording, model, os.path.abspath(r["cube"]), _absolute(r.get("white")), _absolute(r.get("dark")))
            for r in recordings]


def _absolute(path):
    return os.path.abspath(path) if path else None


def run_tasks(client, tasks, names, progress=sys.stderr):
    """The result of every task (a function and its arguments), in the order of `tasks`,
    with one line of progress per finished recording. No more tasks are handed out than
    the cluster has threads, so that each worker holds only the task it runs: a worker
    that dies makes only that task suspect, and the scheduler runs it once more
    elsewhere. A recording whose workers died twice is a failed result."""
    results = [None] * len(tasks)
    waiting = list(enumerate(tasks))[::-1]
    index = {}
    running = as_completed()

    def hand_out():
        while waiting and running.count() < max(1, sum(client.nthreads().values())):
            i, (function, *args) = waiting.pop()
            future = client.submit(function, *args, key=f"zelk-recording-{i}-{uuid.uuid4().hex}", pure=False)
            index[future.key] = i
            running.add(future)

    hand_out()
    for done, future in enumerate(running, 1):
        i = index[future.key]
        try:
            result = future.result()
        except KilledWorker:
            result = {"cube": None, "status": "failed", "code": None,
                      "message": f"its worker died {ALLOWED_FAILURES + 1} times while running it"}
        except Exception as e:  # the task could not run there: say why, and go on with the rest
            result = {"cube": None, "status": "failed", "code": None,
                      "message": f"the task failed on its worker: {type(e).__name__}: {e}"}
        result["recording"] = names[i]
        results[i] = result
        if progress:
            print(f"[{done}/{len(tasks)}] {_line(result)}", file=progress, flush=True)
        hand_out()
    return results


def _line(result):
    if result["status"] != "ok":
        code = "" if result.get("code") is None else f" ({result['code']})"
        return f"{result['recording']}: failed{code}: {result['message']}"
    fps = result["frames"] / max(result["seconds"], 1e-9)
    return f"{result['recording']}: {len(result['objects']['object'])} objects, {fps:.0f} frames/s"
