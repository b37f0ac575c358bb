"""One recording through one handle, as `zelk run` feeds it: line by line as camera
frames for a line-scan model, as one cube for a snapshot model. This is the task that
runs on a worker; it hands back only its results, never the recording's samples."""

import os
import re
import tempfile
import time

import numpy as np

import zelk

from .envi import EnviCube, EnviError

#: The label of pixels at the cube's data ignore value.
NO_DATA = 255
#: The name the library gives the decision of pixels it rejects.
REJECTED = "Unseen in training"
_OBJECT_FIELDS = ["centroid_line", "centroid_column", "first_line", "last_line", "first_column", "last_column"]


def column_name(text):
    """A column name without spaces or commas, as `zelk run` writes it: "Unseen_in_training"."""
    return re.sub(r"[^\w.-]", "_", " ".join(text.split()))


class RecordingError(Exception):
    """A recording that cannot be run; `code` is the library's code when it refused."""

    def __init__(self, message, code=None):
        super().__init__(message)
        self.code = code


def run_recording(model, cube, white=None, dark=None):
    """The results of one recording as a dict of plain values: 'status' "ok" with the
    object records, pixels per decision and speed, or "failed" with the library's
    'code' (None when the recording was refused before the library saw it) and 'message'."""
    result = {"cube": os.fspath(cube), "worker_pid": os.getpid()}
    start = time.perf_counter()
    try:
        result.update(_run(os.fspath(model), os.fspath(cube), white, dark))
        result.update(status="ok", wall_seconds=time.perf_counter() - start)
    except zelk.ZelkError as e:
        result.update(status="failed", code=e.code, message=f"{e.function}: {e.message or 'no text'}")
    except RecordingError as e:
        result.update(status="failed", code=e.code, message=str(e))
    except (EnviError, OSError, ValueError, TypeError) as e:
        result.update(status="failed", code=None, message=str(e))
    return result


def _stage_references(white, dark, directory):
    """The library takes references from a directory as the scans "whiteReference" and
    "darkReference": the given ones are linked there under those names."""
    cubes = {}
    for path, name in ((white, "whiteReference"), (dark, "darkReference")):
        reference = EnviCube(path)
        cubes[name] = reference
        for source, target in ((reference.header_path, ".hdr"), (reference.data_path, ".bin")):
            os.symlink(os.path.abspath(source), os.path.join(directory, name + target))
    return cubes


def _wavelengths_agree(cube, references):
    for name, reference in references.items():
        if cube.wavelengths and reference.wavelengths and not np.allclose(cube.wavelengths, reference.wavelengths):
            raise RecordingError(f"{cube.header_path} and the {name} scan give other wavelengths: they are not of one camera")
        if reference.bands != cube.bands or reference.samples != cube.samples:
            raise RecordingError(f"the {name} scan has {reference.samples} pixels x {reference.bands} bands, "
                                 f"{cube.header_path} {cube.samples} x {cube.bands}")


def _run(model, path, white, dark):
    if (white is None) != (dark is None):
        raise RecordingError("white and dark references go together")
    cube = EnviCube(path)
    with zelk.Handle() as h, tempfile.TemporaryDirectory(prefix="zelk-batch-") as staging:
        h.load_model(model)
        snapshot = h.input_height > 1
        if white is not None:
            if cube.reflectance_scale > 0:
                raise RecordingError(f"{path} holds reflectance (its header states a reflectance scale factor); "
                                     "references correct raw counts only")
            if snapshot:
                raise RecordingError(f"references correct line-scan frames; {model} is a snapshot model")
            _wavelengths_agree(cube, _stage_references(white, dark, staging))
            h.load_correction(staging)
        if h.input_bands != cube.bands:
            raise RecordingError(f"the model takes {h.input_bands} bands, the cube {path} has {cube.bands}")
        scale = np.float32(1.0 / cube.reflectance_scale) if cube.reflectance_scale > 0 else None
        # Band-sequential cubes of that snapshot camera are 16-bit counts whatever the type.
        counts = (snapshot and h.input_data_layout == 3) or h.input_data_type == 1
        if counts and not cube.counts_only:
            raise RecordingError("the model takes 16-bit counts, the cube holds floating-point samples")
        if counts and cube.reflectance_scale > 0:
            raise RecordingError("the model takes 16-bit counts, the cube holds reflectance "
                                 "(its header states a reflectance scale factor)")
        if snapshot:
            if (h.input_width, h.input_height) != (cube.samples, cube.lines):
                raise RecordingError(f"the model takes cubes of {h.input_width} x {h.input_height} pixels, "
                                     f"the cube is {cube.samples} x {cube.lines}")
        else:
            h.set_input_width(cube.samples)
        decisions = [d.name for d in h.decisions()]
        # Objects when the model defines a segmenter that can run; decisions alone otherwise.
        try:
            h.set_segmentation(h.mask_type > 0)
            segmented = h.mask_type > 0
        except zelk.ZelkError:
            segmented = False
        run = _Run(h, cube, scale, counts, segmented)
        with h.acquisition():
            run.snapshot() if snapshot else run.line_scan()
    results = run.results(decisions)
    if results["rejected_share"] >= 0.9:
        raise RecordingError(
            f"{results['rejected_share']:.0%} of the pixels were rejected as '{REJECTED}': the cube is not like what the "
            "model was trained on. Counts need the recording's references; a cube of another camera or other "
            "wavelengths needs a model of its own")
    return results


def _prepared(cube, index, scale):
    """A line as the model takes it (bands x samples): pixels at the data ignore value
    zeroed and marked in the second array, scaled to reflectance when the header says so."""
    line = cube.line(index)
    no_data = np.zeros(cube.samples, bool)
    if cube.ignore_value is not None:
        no_data = (line == np.float32(cube.ignore_value)).any(axis=0)
        line[:, no_data] = 0
    if scale is not None:
        line *= scale
    return line, no_data


class _Run:
    """The frames or the cube of one recording, with what comes back counted."""

    def __init__(self, handle, cube, scale, counts, segmented):
        self.h, self.cube, self.scale, self.counts, self.segmented = handle, cube, scale, counts, segmented
        self.labels = np.zeros(256, np.int64)
        self.records = []
        self.seconds = 0.0
        self.frames = 0
        self.class_sizes = handle.mask_type == 2 if segmented else False

    def _samples(self, line):
        if self.counts:
            return np.clip(line, 0, 65535).astype(np.uint16)
        return line

    def _count(self, labels, no_data):
        labels = labels.copy()
        labels[no_data] = NO_DATA
        self.labels += np.bincount(labels.ravel(), minlength=256)

    def line_scan(self):
        bip = self.h.input_data_layout == 1
        for index in range(self.cube.lines):
            line, no_data = _prepared(self.cube, index, self.scale)
            frame = self._samples(line)
            frame = np.ascontiguousarray(frame.T) if bip else frame
            start = time.perf_counter()
            try:
                self.h.process_frame(frame)
            except zelk.ZelkError as e:
                if e.code != -160:  # more objects ended than the handle keeps: the frame stands
                    raise RecordingError(f"line {index}: {e.function}: {e.message}", e.code) from None
            self.seconds += time.perf_counter() - start
            self.frames += 1
            self._count(self.h.frame_decisions(), no_data)
            if self.segmented:
                self.records.append(self.h.objects())

    def snapshot(self):
        lines = [_prepared(self.cube, index, self.scale) for index in range(self.cube.lines)]
        data = self._samples(np.stack([line for line, _ in lines]))  # height x bands x width
        no_data = np.stack([mask for _, mask in lines])
        layout = self.h.input_data_layout
        data = {1: data.transpose(0, 2, 1), 2: data, 3: data.transpose(1, 0, 2)}[layout]
        start = time.perf_counter()
        try:
            self.h.process_cube(data)
        except zelk.ZelkError as e:
            if e.code != -160:
                raise RecordingError(f"the cube was refused: {e.function}: {e.message}", e.code) from None
        self.seconds = time.perf_counter() - start
        self.frames = 1
        if self.segmented:
            self.records.append(self.h.objects())
        self._count(self.h.cube_decisions(), no_data)

    def results(self, decisions):
        records = np.concatenate(self.records) if self.records else np.zeros(0, zelk.OBJECT_DTYPE)
        objects = {
            "object": records["number"].tolist(),
            "decision": records["decision"].tolist(),
            "decision_name": [decisions[d] if 0 <= d < len(decisions) else str(d) for d in records["decision"]],
        }
        for field in _OBJECT_FIELDS:
            objects[field] = records[field].tolist()
        objects["pixels"] = records["pixel_count"].tolist()
        if self.class_sizes:  # pixels per decision exist when all foreground decisions form objects together
            for code, name in enumerate(decisions):
                sizes = records["class_sizes"][:, code] if code < zelk.CLASS_SLOTS else np.zeros(len(records), int)
                objects["pixels_" + column_name(name)] = sizes.tolist()
        pixels = {name: int(self.labels[code]) for code, name in enumerate(decisions)}
        if self.labels[NO_DATA]:
            pixels["no data"] = int(self.labels[NO_DATA])
        counted = sum(v for k, v in pixels.items() if k != "no data")
        rejected = pixels.get(REJECTED, 0) / counted if counted and REJECTED in decisions else 0.0
        return {
            "segmented": self.segmented,
            "decisions": decisions,
            "objects": objects,
            "pixels": pixels,
            "rejected_share": rejected,
            "frames": self.frames,
            "seconds": self.seconds,
            "lines": self.cube.lines,
            "width": self.cube.samples,
        }
