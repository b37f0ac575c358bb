"""zelk-batch on small synthetic belt recordings of one camera, each with its references
and truth: its tables equal what `zelk run` writes for each recording, on the embedded
local cluster and on a scheduler and two workers started as separate processes; failed
recordings and dying workers are reported, retried once and counted once."""

import os
import signal
import socket
import subprocess
import sys
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
from PIL import Image

from conftest import ROOT

from zelk import batch
from zelk.batch import cluster
from zelk.batch.recording import run_recording

TOOLS = Path(os.environ["ZELK_LIBRARY"]).resolve().parent / "tools"
SEEDS = (1, 2, 3)
# Columns that are measured, not computed: they differ from run to run.
TIMING = ["seconds", "frames_per_s", "wall_seconds"]


def zelk_scene(directory, seed, lines=300):
    subprocess.run([str(TOOLS / "zelk-scene"), str(directory), "--width", "96", "--lines", str(lines), "--bands", "32",
                    "--objects", "6", "--seed", str(seed)], check=True, capture_output=True)


@pytest.fixture(scope="module")
def archive(tmp_path_factory):
    """Three recordings with references and truths; the model of the first serves all."""
    root = tmp_path_factory.mktemp("archive")
    for seed in SEEDS:
        zelk_scene(root / f"recording-{seed}", seed)
    return root


@pytest.fixture(scope="module")
def local_run(archive, tmp_path_factory):
    """The tables of zelk-batch on the embedded local cluster of two workers."""
    recordings = batch.find_recordings([str(archive / "recording-*" / "*.hdr")])
    out = tmp_path_factory.mktemp("local")
    return batch.run(archive / "recording-1" / "model.zelk", recordings, out, workers=2, progress=False)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


@pytest.fixture(scope="module")
def separate_cluster():
    """A scheduler and two workers of one thread, each its own process, on loopback."""
    from distributed import Client

    address = f"tcp://127.0.0.1:{free_port()}"
    env = {**os.environ, "PYTHONPATH": os.pathsep.join([str(ROOT / "python"), str(Path(__file__).parent)])}
    scheduler = subprocess.Popen([sys.executable, "-m", "distributed.cli.dask_scheduler", "--host", "127.0.0.1",
                                  "--port", address.rsplit(":", 1)[1], "--no-dashboard"], env=env,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    workers = [subprocess.Popen([sys.executable, "-m", "distributed.cli.dask_worker", address, "--nthreads", "1",
                                 "--nworkers", "1", "--no-dashboard"], env=env,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) for _ in range(2)]
    try:
        with Client(address, timeout=60) as client:
            client.wait_for_workers(2, timeout=60)
        yield address
    finally:
        for process in workers + [scheduler]:
            process.terminate()
        for process in workers + [scheduler]:
            process.wait(timeout=30)


def test_each_recording_equals_zelk_run_and_its_truth(archive, local_run, tmp_path):
    objects, classes, summary = local_run["objects"], local_run["classes"], local_run["recordings"]
    assert list(summary["status"]) == ["ok"] * len(SEEDS)
    for seed in SEEDS:
        name, folder = f"recording-{seed}/scene", archive / f"recording-{seed}"
        out = tmp_path / str(seed)
        run = subprocess.run([str(TOOLS / "zelk"), "run", str(archive / "recording-1" / "model.zelk"), str(folder / "scene.hdr"),
                              "--white", str(folder / "whiteReference.hdr"), "--dark", str(folder / "darkReference.hdr"),
                              "--out", str(out)], capture_output=True, text=True)
        assert run.returncode == 0, run.stderr
        expected = pd.read_csv(out / "scene_objects.csv")
        found = objects[objects["recording"] == name].drop(columns="recording").reset_index(drop=True)
        assert len(expected) > 0
        pd.testing.assert_frame_equal(found, expected, check_dtype=False)

        # The pixels per decision are the label map's.
        labels = np.bincount(np.asarray(Image.open(out / "scene_decisions.png")).ravel(), minlength=256)
        mine = classes[classes["recording"] == name]
        assert dict(zip(mine["decision"], mine["pixels"])) == {
            d: labels[code] for code, d in enumerate(mine["decision"])}

        # Every true object is found and decided right, as the scene's own tests demand.
        truth = pd.read_csv(folder / "truth.csv")
        row = summary[summary["recording"] == name].iloc[0]
        assert (row["matched"], row["correct"], row["missed"], row["extra"]) == (len(truth), len(truth), 0, 0)
        assert row["frames"] == 300 and row["frames_per_s"] > 0 and row["wall_seconds"] > row["seconds"]

    # Right decisions on the diagonal, the foreign material's as rejected; none missed.
    matrix = local_run["confusion"]
    assert list(matrix.index) == ["hazelnut", "shell", "stone", "plastic"]
    assert list(matrix.columns) == ["hazelnut", "shell", "stone", "Unseen in training", "missed"]
    decided = matrix.drop(columns="missed").to_numpy()
    assert decided.sum() == len(objects) and (decided == np.diag(np.diag(decided))).all()
    assert matrix.loc["plastic", "Unseen in training"] > 0
    for picture in ("class_counts.png", "confusion.png"):
        assert Image.open(Path(local_run["paths"]["report"]).parent / picture).size[0] > 300


def test_separate_processes_give_the_local_tables(archive, local_run, separate_cluster, tmp_path):
    command = subprocess.run([sys.executable, "-m", "zelk.batch", str(archive / "recording-1" / "model.zelk"),
                              str(archive / "recording-*" / "*.hdr"), "--scheduler", separate_cluster, "--out", str(tmp_path)],
                             capture_output=True, text=True, env={**os.environ, "PYTHONPATH": str(ROOT / "python")})
    assert command.returncode == 0, command.stderr
    assert "recordings: 3 of 3 ran" in command.stdout
    assert command.stderr.count("[") >= len(SEEDS), "a line of progress per recording"
    for name in ("objects", "classes", "matches", "confusion"):
        local = pd.read_csv(local_run["paths"][name])
        pd.testing.assert_frame_equal(pd.read_csv(tmp_path / f"{name}.csv"), local)
    remote = pd.read_csv(tmp_path / "recordings.csv").drop(columns=TIMING)
    pd.testing.assert_frame_equal(remote, pd.read_csv(local_run["paths"]["recordings"]).drop(columns=TIMING))


def test_an_unreachable_scheduler_is_refused(archive, tmp_path):
    command = subprocess.run([sys.executable, "-m", "zelk.batch", str(archive / "recording-1" / "model.zelk"),
                              str(archive / "recording-1" / "scene.hdr"), "--scheduler", f"tcp://127.0.0.1:{free_port()}",
                              "--out", str(tmp_path)], capture_output=True, text=True,
                             env={**os.environ, "PYTHONPATH": str(ROOT / "python")})
    assert command.returncode == 2
    assert "cannot reach the Dask scheduler at tcp://127.0.0.1:" in command.stderr.splitlines()[-1]


def write_envi(path, cube, dtype, interleave, extra=""):
    """`cube` (lines x samples x bands) as an ENVI cube of numpy type `dtype` ('>f8' is
    big-endian) in `interleave`."""
    lines, samples, bands = cube.shape
    order = {"bip": (0, 1, 2), "bil": (0, 2, 1), "bsq": (2, 0, 1)}[interleave]
    code = {"f4": 4, "f8": 5, "i2": 2, "u2": 12}[np.dtype(dtype).str[1:]]
    path.with_suffix(".hdr").write_text(
        f"ENVI\nsamples = {samples}\nlines = {lines}\nbands = {bands}\nheader offset = 0\ndata type = {code}\n"
        f"interleave = {interleave}\nbyte order = {int(np.dtype(dtype).byteorder == '>')}\n{extra}")
    path.with_suffix(".dat").write_bytes(np.ascontiguousarray(cube.transpose(order)).astype(dtype).tobytes())


def leaves():
    """100 lines x 8 pixels x 4 bands: the test model's leaves (band 1 near 10) on a bare
    background, a block of them and a single one."""
    cube = np.zeros((100, 8, 4))
    cube[10:15, 1:4, 1] = 10
    cube[60, 6, 1] = 10
    return cube


CUBE_CASES = {
    # Whole numbers that the header scales down to the model's values.
    "scaled-int16-bil": ("linescan", leaves() * 1000, "<i2", "bil", "reflectance scale factor = 1000\n"),
    # Pixels at the ignore value: zeroed for the model, counted as no data.
    "ignored-float64-big-endian-bsq": ("linescan", np.where(np.arange(8) == 0, -1.0, leaves().transpose(2, 0, 1)).transpose(1, 2, 0),
                                       ">f8", "bsq", "data ignore value = -1\n"),
    "snapshot-float32-bip": ("snapshot", leaves(), "<f4", "bip", ""),
}


@pytest.mark.parametrize("case", list(CUBE_CASES))
def test_cubes_read_as_zelk_run_reads_them(case, write_model, tmp_path):
    kind, cube, dtype, interleave, extra = CUBE_CASES[case]
    model = write_model() if kind == "linescan" else write_model("--snapshot", "--all-foreground")
    write_envi(tmp_path / "cube", cube, dtype, interleave, extra)
    run = subprocess.run([str(TOOLS / "zelk"), "run", str(model), str(tmp_path / "cube.hdr"), "--out", str(tmp_path / "out")],
                         capture_output=True, text=True)
    assert run.returncode == 0, run.stderr
    result = run_recording(model, tmp_path / "cube.hdr")
    assert result["status"] == "ok", result["message"]
    expected = pd.read_csv(tmp_path / "out" / "cube_objects.csv")
    assert len(expected) == 2
    pd.testing.assert_frame_equal(pd.DataFrame(result["objects"]), expected, check_dtype=False)
    labels = np.bincount(np.asarray(Image.open(tmp_path / "out" / "cube_decisions.png")).ravel(), minlength=256)
    assert result["pixels"] == {**{"bg": labels[0], "leaf": labels[1]}, **({"no data": labels[255]} if labels[255] else {})}
    assert ("no data" in result["pixels"]) == ("ignore" in extra)


def write_cube(path, lines, width, bands, data_bytes=None):
    """An ENVI uint16 BIL cube of zeros; `data_bytes` cuts its data file short."""
    path.with_suffix(".hdr").write_text(f"ENVI\nsamples = {width}\nlines = {lines}\nbands = {bands}\nheader offset = 0\n"
                                        "data type = 12\ninterleave = bil\nbyte order = 0\n")
    size = lines * width * bands * 2
    path.with_suffix(".bin").write_bytes(bytes(size if data_bytes is None else data_bytes))


def test_failed_recordings_are_reported_and_the_rest_go_on(archive, tmp_path):
    good = archive / "recording-2"
    write_cube(tmp_path / "wrong_bands", 20, 96, 24)
    write_cube(tmp_path / "short", 20, 96, 32, data_bytes=1000)
    # The good recording named twice runs once.
    recordings = batch.find_recordings([str(tmp_path / "*.hdr"), str(good / "scene.hdr"), str(good / ".." / good.name / "scene.hdr")])
    tables = batch.run(archive / "recording-1" / "model.zelk", recordings, tmp_path / "out", workers=1, progress=False)
    short, wrong_bands, scene = batch.names(recordings)
    summary = tables["recordings"].set_index("recording")
    assert list(summary["status"]) == ["failed", "failed", "ok"]
    assert "the model takes 32 bands" in summary.loc[wrong_bands, "message"] and "has 24" in summary.loc[wrong_bands, "message"]
    assert "too short" in summary.loc[short, "message"]
    assert set(tables["objects"]["recording"]) == {scene}
    page = Path(tables["paths"]["report"]).read_text()
    assert "<h2>Failed recordings</h2>" in page and "too short" in page

    # A model the library refuses fails every recording with the library's code and text.
    not_a_model = tmp_path / "model.zelk"
    not_a_model.write_bytes(b"not a model")
    result = run_recording(not_a_model, good / "scene.hdr")
    assert result["status"] == "failed" and result["code"] < 0
    assert result["message"].startswith("zelk_LoadModel: ") and len(result["message"]) > len("zelk_LoadModel: ")


def attempt(log):
    """Notes one more run of a task in the file `log`; the number of runs so far."""
    with open(log, "a") as f:
        f.write(f"{os.getpid()}\n")
    return len(Path(log).read_text().split())


def die_first(log, *args):
    """The task of a worker that dies the first time it runs it."""
    if attempt(log) == 1:
        os.kill(os.getpid(), signal.SIGKILL)
    return run_recording(*args)


def die_always(log):
    attempt(log)
    os.kill(os.getpid(), signal.SIGKILL)


def test_a_dead_worker_retries_its_recording_once(archive, separate_cluster, tmp_path):
    model, cube = archive / "recording-1" / "model.zelk", archive / "recording-3" / "scene.hdr"
    references = [str(archive / "recording-3" / f"{n}Reference.hdr") for n in ("white", "dark")]
    client = cluster.connect(separate_cluster)
    try:
        plain = (run_recording, str(model), str(cube), *references)
        tasks = [(die_first, str(tmp_path / "first.log"), *plain[1:]), plain]
        retried, plain = cluster.run_tasks(client, tasks, ["retried", "plain"], progress=None)
        # Alone, so that its worker's deaths take no other task with them.
        [dead] = cluster.run_tasks(client, [(die_always, str(tmp_path / "always.log"))], ["dead"], progress=None)
    finally:
        client.close()
    runs = [len((tmp_path / f"{name}.log").read_text().split()) for name in ("first", "always")]
    assert runs == [2, 2]
    assert retried["status"] == "ok" and retried["objects"] == plain["objects"] and retried["pixels"] == plain["pixels"]
    assert dead["status"] == "failed" and "died 2 times" in dead["message"]
