"""The binding's tests run whole sessions against the built library, with model files
that the project's model writer makes (the program zelk_testmodel of the build)."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python"))
os.environ.setdefault("ZELK_LIBRARY", str(ROOT / "build" / "plain" / "libzelk.so"))


@pytest.fixture(scope="session")
def write_model(tmp_path_factory):
    """write_model(*options) -> path of a model file from zelk_testmodel with those options."""
    writer = os.environ.get("ZELK_TESTMODEL", str(ROOT / "build" / "plain" / "tests" / "zelk_testmodel"))
    directory = tmp_path_factory.mktemp("models")

    def write(*options):
        path = directory / ("model" + "".join(options).replace("-", "_") + ".zelk")
        if not path.exists():
            subprocess.run([writer, *options, str(path)], check=True)
        return path

    return write


@pytest.fixture
def linescan(write_model):
    return write_model()


@pytest.fixture
def snapshot(write_model):
    return write_model("--snapshot", "--all-foreground")
