"""Sessions through the binding. The test models classify by band 1: near 10 is "leaf"
(decision 1), near 0 "bg" (decision 0); leaf pixels form objects."""

import re

import numpy as np
import pytest

import zelk
from zelk import _capi
from conftest import ROOT

WIDTH, BANDS, HEIGHT = 8, 4, 100
BG, LEAF = 0, 1


def bil_frame(leaf_columns):
    frame = np.zeros((BANDS, WIDTH), dtype=np.float32)
    frame[1, list(leaf_columns)] = 10
    return frame


def test_binding_declares_every_function_of_the_header():
    header = (ROOT / "include" / "zelk.h").read_text()
    declared = {
        name: [] if params.strip() == "void" else params.split(",")
        for name, params in re.findall(r"ZELK_API[^;(]*\b(zelk_\w+)\s*\(([^)]*)\)", header)
    }
    assert len(declared) == 46
    assert set(_capi.PROTOTYPES) == set(declared)
    for name, params in declared.items():
        assert len(_capi.PROTOTYPES[name][1]) == len(params), name
    assert zelk.version().startswith("5.1 (")


def test_model_geometry_and_vocabulary(linescan, snapshot):
    with zelk.Handle() as h:
        h.load_model(linescan)
        assert (h.input_width, h.input_height, h.input_bands) == (WIDTH, 1, BANDS)
        assert (h.input_data_type, h.input_data_layout, h.mask_type) == (2, 2, 1)
        assert [d.name for d in h.decisions()] == ["bg", "leaf"]
        assert h.decisions()[LEAF].color == (0, 200, 0)
        assert h.reg_var_names() == []
        assert h.devices()[0] == h.device_name(0) and h.device_count() >= 1

        h.load_model(snapshot)
        assert (h.input_width, h.input_height, h.input_bands) == (WIDTH, HEIGHT, BANDS)
        assert (h.input_data_layout, h.mask_type) == (1, 2)


def test_frame_session_gives_decisions_and_objects(linescan):
    with zelk.Handle() as h:
        h.load_model(linescan)
        h.set_segmentation(True)
        found = {}
        with h.acquisition() as run:
            assert h.sample_dtype == np.float32
            # A leaf over lines 0 to 4, columns 2 to 4; objects close on every 20th line.
            for line in range(25):
                h.process_frame(bil_frame([2, 3, 4] if line < 5 else []))
                if line == 0:
                    assert h.frame_decisions().tolist() == [0, 0, 1, 1, 1, 0, 0, 0]
                if h.object_count():
                    found[line] = h.objects()
            with pytest.raises(ValueError):  # width x bands, not the project's bands x width
                h.process_frame(bil_frame([]).T)
        assert list(found) == [20]
        (obj,) = found[20]
        assert obj["number"] == 1 and obj["decision"] == LEAF and obj["pixel_count"] == 15
        assert (obj["first_line"], obj["last_line"], obj["first_column"], obj["last_column"]) == (0, 4, 2, 4)
        assert (obj["centroid_line"], obj["centroid_column"]) == (2, 3)
        assert run.log.endswith("processed 25 frames, first 500 skipped for warm-up.\n")

        # Pixel after pixel, given as width x bands; any lossless input type is taken.
        h.set_input_data_layout(1)
        with h.acquisition():
            h.process_frame(bil_frame([0, 7]).T.astype(np.float64))
            assert h.frame_decisions().tolist() == [1, 0, 0, 0, 0, 0, 0, 1]
            # A frame that does not fit never reaches the library.
            with pytest.raises(ValueError):
                h.process_frame(bil_frame([0]))
            with pytest.raises(ValueError):
                h.process_frame(np.zeros(WIDTH * BANDS - 1, dtype=np.float32))
            with pytest.raises(TypeError):
                h.process_frame(np.zeros((WIDTH, BANDS), dtype=np.complex64))


def test_snapshot_cube_gives_decisions_and_objects(snapshot, tmp_path):
    cube = np.zeros((HEIGHT, WIDTH, BANDS), dtype=np.float32)
    cube[10:15, 1:4, 1] = 10  # a block of 15 pixels
    cube[60, 6, 1] = 10  # a single pixel
    expected = (cube[:, :, 1] == 10).astype(np.uint8)
    with zelk.Handle() as h:
        h.load_model(snapshot)
        h.set_segmentation(True)
        assert h.cube_decisions() is None  # nothing before the first start
        with h.acquisition():
            h.process_cube(cube)
            np.testing.assert_array_equal(h.cube_decisions(), expected)
            block, single = h.objects()
            assert (block["number"], single["number"]) == (1, 2)
            assert (block["first_line"], block["last_line"], block["first_column"], block["last_column"]) == (10, 14, 1, 3)
            assert (block["centroid_line"], block["centroid_column"], block["pixel_count"]) == (12, 2, 15)
            assert (single["centroid_line"], single["centroid_column"], single["pixel_count"]) == (60, 6, 1)
            # All foreground together: each record counts its pixels per decision.
            assert block["class_sizes"][LEAF] == 15 and block["class_sizes"].sum() == 15
            assert h.object_class_size(0, LEAF) == 15 and h.object_class_fraction(1, LEAF) == 1.0

            # Only the left half classified: the rest reads the fill, and the single
            # pixel is gone.
            h.set_cube_roi(0, 0, 4, HEIGHT, fill=7)
            h.process_cube(cube)
            decisions = h.cube_decisions()
            np.testing.assert_array_equal(decisions[:, :4], expected[:, :4])
            assert (decisions[:, 4:] == 7).all()
            assert h.object_count() == 1

            h.save_image(tmp_path / "decisions.png")
            assert (tmp_path / "decisions.png").read_bytes().startswith(b"\x89PNG")
            with pytest.raises(ValueError):
                h.process_cube(cube.transpose(1, 0, 2))


def test_errors_carry_the_code_and_text_of_the_library(linescan, tmp_path):
    with zelk.Handle() as h:
        with pytest.raises(zelk.ZelkError) as e:
            h.load_model(tmp_path / "missing.zelk")
        assert e.value.code == -113 == h.error_code
        assert e.value.message == h.error_message != ""

        h.load_model(linescan)
        with pytest.raises(zelk.ZelkError) as e:
            h.process_frame(bil_frame([]))
        assert (e.value.code, str(e.value)) == (-171, "zelk_ProcessFrame: Acquisition not running.")

        # The call returns -1 and keeps its text under a code of its own.
        with pytest.raises(zelk.ZelkError) as e:
            h.set_min_obj_size(0)
        assert (e.value.code, e.value.message) == (-1, "zelk_SetMinObjSize: Wrong minimum object size (must be >0)")

        # Refusals that the library keeps in its process-wide pair, the handle's code unchanged.
        with pytest.raises(zelk.ZelkError) as e:
            h.set_input_data_layout(7)
        assert (e.value.code, e.value.message) == (-136, "zelk_SetInputDataLayout: Unsuported layout type requested (7)")
        with pytest.raises(zelk.ZelkError) as e:
            h.reg_var_name(0)
        assert (e.value.code, e.value.message) == (-302, "zelk_GetRegVarName: Passing NULL pointer.")
        assert h.error_code == -190


def test_context_managers_release_and_stop(linescan):
    with pytest.raises(KeyError):
        with zelk.Handle() as h:
            h.load_model(linescan)
            raise KeyError
    assert h.closed
    with pytest.raises(zelk.ZelkError) as e:
        h.input_width
    assert (e.value.code, e.value.message) == (-101, "zelk_GetInputWidth: Passing NULL pointer.")
    h.close()

    with zelk.Handle() as h:
        h.load_model(linescan)
        with pytest.raises(KeyError):
            with h.acquisition():
                h.process_frame(bil_frame([1]))
                raise KeyError
        with pytest.raises(zelk.ZelkError) as e:
            h.process_frame(bil_frame([1]))
        assert e.value.code == -171  # stopped on the way out
        with h.acquisition():  # and can start again
            h.process_frame(bil_frame([1]))
