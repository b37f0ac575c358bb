"""zelk run on cubes that GDAL and Spectral Python write, as users in the field make
them: every interleave, both byte orders, whole and floating-point samples, wavelengths
in micrometres. Each gives the decisions of the scene, and the label map and records
read back with the same tools. The test model classifies by band 1: near 10 is "leaf"
(decision 1 in the label map), near 0 "bg" (0)."""

import csv
import os
import subprocess
from pathlib import Path

import numpy as np
import pytest

import spectral.io.envi as envi
from osgeo import gdal

# Spectral Python 0.22 writes with an array method that numpy deprecates.
pytestmark = pytest.mark.filterwarnings("ignore:tostring:DeprecationWarning")

LINES, WIDTH, BANDS = 30, 8, 4
WAVELENGTHS_UM = [0.9, 1.0, 1.1, 1.2]
CLI = Path(os.environ.get("ZELK_CLI", Path(os.environ["ZELK_LIBRARY"]).resolve().parent / "tools" / "zelk"))


def leaf_scene():
    """lines x width x bands, with a leaf of 3 x 3 pixels at lines 3-5, columns 2-4."""
    cube = np.zeros((LINES, WIDTH, BANDS))
    cube[3:6, 2:5, 1] = 10
    return cube


def expected_labels():
    labels = np.zeros((LINES, WIDTH), np.uint8)
    labels[3:6, 2:5] = 1
    return labels


def zelk(*args):
    return subprocess.run([str(CLI), *map(str, args)], capture_output=True, text=True)


def write_with_gdal(path, cube, dtype, interleave):
    gdal.UseExceptions()
    types = {np.int16: gdal.GDT_Int16, np.float32: gdal.GDT_Float32, np.float64: gdal.GDT_Float64}
    ds = gdal.GetDriverByName("ENVI").Create(str(path), WIDTH, LINES, BANDS, types[dtype], options=[f"INTERLEAVE={interleave}"])
    for b in range(BANDS):
        ds.GetRasterBand(b + 1).WriteArray(cube[:, :, b].astype(dtype))
    ds.SetMetadataItem("wavelength", "{" + ", ".join(map(str, WAVELENGTHS_UM)) + "}", "ENVI")
    ds.SetMetadataItem("wavelength_units", "Micrometers", "ENVI")
    ds = None


GDAL_CASES = [(dtype, interleave) for dtype in (np.int16, np.float32, np.float64) for interleave in ("BIL", "BIP", "BSQ")]


@pytest.mark.parametrize("dtype,interleave", GDAL_CASES, ids=[f"{d.__name__}-{i}" for d, i in GDAL_CASES])
def test_cubes_written_by_gdal(linescan, tmp_path, dtype, interleave):
    data = tmp_path / f"scene.{interleave.lower()}"
    write_with_gdal(data, leaf_scene(), dtype, interleave)
    run = zelk("run", linescan, tmp_path / "scene.hdr", "--out", tmp_path / "out")
    assert run.returncode == 0, run.stderr
    assert f"data {data}\n" in run.stdout
    assert "objects: 1 (1 leaf)" in run.stdout
    # The label map, read by GDAL as any raster.
    labels = gdal.Open(str(tmp_path / "out" / "scene_decisions.png")).ReadAsArray()
    np.testing.assert_array_equal(labels, expected_labels())


SPECTRAL_CASES = [
    (dtype, interleave, order)
    for dtype in (np.int16, np.float32, np.float64)
    for interleave in ("bil", "bip", "bsq")
    for order in (0, 1)
]


@pytest.mark.parametrize(
    "dtype,interleave,byteorder", SPECTRAL_CASES, ids=[f"{d.__name__}-{i}-{o}" for d, i, o in SPECTRAL_CASES]
)
def test_cubes_written_by_spectral_python(linescan, tmp_path, dtype, interleave, byteorder):
    # An odd file name, and the data file named instead of the header.
    header = tmp_path / "belt run #2.hdr"
    metadata = {"wavelength": WAVELENGTHS_UM, "wavelength units": "Micrometers"}
    envi.save_image(str(header), leaf_scene().astype(dtype), interleave=interleave, byteorder=byteorder, metadata=metadata)
    run = zelk("run", linescan, tmp_path / "belt run #2.img", "--out", tmp_path / "out")
    assert run.returncode == 0, run.stderr
    assert "objects: 1 (1 leaf)" in run.stdout
    with open(tmp_path / "out" / "belt run #2_objects.csv", newline="") as f:
        (row,) = list(csv.DictReader(f))
    assert (row["decision_name"], row["centroid_line"], row["centroid_column"], row["pixels"]) == ("leaf", "4", "3", "9")


def test_reflectance_stored_as_whole_numbers(linescan, tmp_path):
    # int16 reflectance x 1000 with a no-data border line, as remote sensing products keep it.
    cube = leaf_scene() * 1000
    cube[0] = -9999
    metadata = {"wavelength": WAVELENGTHS_UM, "wavelength units": "Micrometers", "reflectance scale factor": 1000,
                "data ignore value": -9999}
    envi.save_image(str(tmp_path / "scaled.hdr"), cube.astype(np.int16), interleave="bil", metadata=metadata)
    run = zelk("run", linescan, tmp_path / "scaled.hdr", "--out", tmp_path / "out")
    assert run.returncode == 0, run.stderr
    labels = gdal.Open(str(tmp_path / "out" / "scaled_decisions.png")).ReadAsArray()
    expected = expected_labels()
    expected[0] = 255
    np.testing.assert_array_equal(labels, expected)


def test_wavelengths_in_descending_order_are_refused(linescan, tmp_path):
    metadata = {"wavelength": WAVELENGTHS_UM[::-1], "wavelength units": "Micrometers"}
    envi.save_image(str(tmp_path / "reversed.hdr"), leaf_scene()[:, :, ::-1].astype(np.float32), metadata=metadata)
    run = zelk("run", linescan, tmp_path / "reversed.hdr", "--out", tmp_path / "out")
    assert run.returncode == 1
    assert "the band order is reversed" in run.stderr
    assert not (tmp_path / "out" / "reversed_decisions.png").exists()
