"""`pip install ./python` gives a package that finds the library outside the source
tree: by $ZELK_LIBRARY, or as the installed libzelk.so.5 through the system's loader."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

from conftest import ROOT

PROBE = "import zelk; print(zelk.__file__); print(zelk.__version__, zelk.version())"


def test_pip_installs_a_package_that_finds_the_library(tmp_path):
    # A copy of the package's sources, so that the build leaves nothing in the tree.
    source = tmp_path / "source"
    shutil.copytree(ROOT / "python", source, ignore=shutil.ignore_patterns("tests", "__pycache__", "*.egg-info", "build"))
    venv = tmp_path / "venv"
    subprocess.run([sys.executable, "-m", "venv", "--without-pip", "--system-site-packages", str(venv)], check=True)
    python = str(venv / "bin" / "python")
    install = subprocess.run(
        [python, "-m", "pip", "install", "-q", "--no-build-isolation", "--no-index", str(source)],
        capture_output=True, text=True,
    )
    assert install.returncode == 0, install.stdout + install.stderr

    library = Path(os.environ["ZELK_LIBRARY"]).resolve()
    plain = {k: v for k, v in os.environ.items() if k not in ("ZELK_LIBRARY", "PYTHONPATH", "LD_LIBRARY_PATH")}
    for extra in ({"ZELK_LIBRARY": str(library)}, {"LD_LIBRARY_PATH": str(library.parent)}):
        probe = subprocess.run([python, "-c", PROBE], cwd=tmp_path, env={**plain, **extra}, capture_output=True, text=True)
        assert probe.returncode == 0, probe.stderr
        where, versions = probe.stdout.splitlines()
        assert where.startswith(str(venv)), where
        assert versions.startswith("5.1.0 5.1 ("), versions


    # The batch tool comes along as a command of the package.
    batch = subprocess.run([str(venv / "bin" / "zelk-batch"), "--help"], cwd=tmp_path,
                           env={**plain, "ZELK_LIBRARY": str(library)}, capture_output=True, text=True)
    assert batch.returncode == 0, batch.stderr
    assert batch.stdout.startswith("usage: zelk-batch MODEL CUBE"), batch.stdout
