"""Python binding of the zelk run-time library, over its C interface with ctypes.

    import numpy as np, zelk

    with zelk.Handle() as h:
        h.load_model("model.zelk")
        h.set_segmentation(True)
        with h.acquisition() as run:
            for frame in camera:               # arrays of bands x width (BIL)
                h.process_frame(frame)
                decisions = h.frame_decisions()
                for obj in h.objects():
                    print(obj["number"], obj["decision"], obj["pixel_count"])
        print(run.log)                         # the timing statistics of the run

A failing call raises ZelkError with the library's code and text. Arrays handed out
are copies: they stay valid after the next frame. The library is found through
$ZELK_LIBRARY, else in build/plain of the source tree, else as libzelk.so.5.
"""

import ctypes
import os
from collections import namedtuple
from ctypes import POINTER, byref, c_float, c_int32, c_ubyte, c_uint8

import numpy as np

from . import _capi

__all__ = ["Handle", "Acquisition", "ZelkError", "Decision", "OBJECT_DTYPE", "CLASS_SLOTS", "version"]

_lib = _capi.load()

#: Counters per decision code in an object record: 20 foreground classes and the unknown one.
CLASS_SLOTS = 21

#: One object record: the 30 integers of zelk_GetObjDataInt, by name.
OBJECT_DTYPE = np.dtype(
    [
        ("number", np.int32),
        ("centroid_line", np.int32),
        ("centroid_column", np.int32),
        ("first_line", np.int32),
        ("last_line", np.int32),
        ("first_column", np.int32),
        ("last_column", np.int32),
        ("pixel_count", np.int32),
        ("decision", np.int32),
        ("class_sizes", np.int32, (CLASS_SLOTS,)),
    ]
)
assert OBJECT_DTYPE.itemsize == 30 * 4

Decision = namedtuple("Decision", "name color")

# Sample types of the input configuration.
_SAMPLE_DTYPES = {1: np.dtype(np.uint16), 2: np.dtype(np.float32)}
# Layouts: 1 pixel after pixel, 2 band after band per line, 3 band after band per cube.
_BIP, _BIL, _BSQ = 1, 2, 3
# Start refusals that come before the start fixes the input type (and the layout):
# no handle, no project or classifier, already running, no usable segmenter, no type.
_BEFORE_TYPE = {-101, -103, -164, -170, -172, -174}
_BEFORE_LAYOUT = _BEFORE_TYPE | {-173}


def _text(raw):
    """A text of the library: in the local 8-bit encoding, UTF-8 on any usual system."""
    if raw is None:
        return ""
    try:
        return raw.decode("utf-8")
    except UnicodeDecodeError:
        return raw.decode("latin-1")


def _file_name(path):
    """A path as the library takes it: Latin-1 bytes."""
    name = os.fspath(path)
    if isinstance(name, bytes):
        name = os.fsdecode(name)
    try:
        return name.encode("latin-1")
    except UnicodeEncodeError:
        raise ValueError(f"{name!r}: the library takes file names of Latin-1 characters only") from None


def version():
    """The library's version line, e.g. "5.1 (23-apr-2024)"."""
    return _text(_lib.zelk_GetVersion())


class ZelkError(Exception):
    """A refusal of the library: `code` (negative), `message` (its text, empty when the
    library kept none) and `function`, the C function that failed."""

    def __init__(self, code, message, function):
        self.code = int(code)
        self.message = message
        self.function = function
        super().__init__(message or f"{function} failed with code {self.code}")


def _global_pair():
    return _lib.zelk_GetErrorCode(None), _text(_lib.zelk_GetErrorMsg(None))


class Handle:
    """A library handle: one project, its input configuration, a run and its results.

    Use it in `with`, or call close(); the library's handle is released either way.
    Calls on a closed handle reach the library with a null handle and raise its
    "Passing NULL pointer." error (code -101)."""

    def __init__(self):
        self._h = _lib.zelk_Init(None)
        if not self._h:
            raise ZelkError(*_global_pair(), "zelk_Init")
        # The sample type and layout that the library fixes for the handle: the type at
        # the first start only, the layout there unless set before. Frames and cubes are
        # checked against them, so that the library never reads past an array.
        self._sample_type = None
        self._layout = None
        self._big_endian_cubes = False

    # -- lifetime ---------------------------------------------------------------

    def close(self):
        """Ends any run and releases the library's handle; a second call does nothing."""
        h, self._h = self._h, None
        if h:
            _lib.zelk_Release(h)

    @property
    def closed(self):
        return self._h is None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        if getattr(self, "_h", None) and _lib is not None:
            self.close()

    # -- errors -----------------------------------------------------------------

    @property
    def error_code(self):
        """The handle's last error code (zelk_GetErrorCode)."""
        return _lib.zelk_GetErrorCode(self._h)

    @property
    def error_message(self):
        """The handle's text: its last error, log line or name (zelk_GetErrorMsg)."""
        return _text(_lib.zelk_GetErrorMsg(self._h))

    def _error(self, function, code=None, text=None):
        """The error of a failed call: the code it returned (None for a null pointer: the
        code kept with the text) and the text the library kept for it. That is the
        pair of the handle or, for a null handle and a few refusals, the process-wide
        pair, whichever holds the returned code. Where the library keeps the text
        under another code, `text` names the pair: "handle" or "process-wide". Some
        refusals keep no text at all."""
        pairs = [_global_pair()]
        if self._h and text != "process-wide":
            pairs.insert(0, (_lib.zelk_GetErrorCode(self._h), self.error_message))
        for kept_code, kept_text in pairs:
            if code is None or kept_code == code or text is not None:
                return ZelkError(kept_code if code is None else code, kept_text, function)
        return ZelkError(code, "", function)

    def _call(self, name, *args, text=None):
        """Calls an int function; a negative result raises, any other is returned."""
        result = getattr(_lib, name)(self._h, *args)
        if result < 0:
            raise self._error(name, result, text)
        return result

    def _pointer(self, name, *args):
        """Calls a function that returns a pointer; null raises the handle's error."""
        pointer = getattr(_lib, name)(self._h, *args)
        if not pointer:
            raise self._error(name)
        return pointer

    # -- compute devices -----------------------------------------------------------

    def device_count(self):
        return self._call("zelk_GetDeviceCount")

    def device_name(self, index):
        return _text(self._pointer("zelk_GetDeviceName", int(index)))

    def devices(self):
        """The names of the device list: the CPU entries first, then the GPUs."""
        return [self.device_name(i) for i in range(self.device_count())]

    def set_device(self, index):
        """Chooses list entry `index` for models loaded from now on."""
        self._call("zelk_SetDevice", int(index))

    def refresh_device_list(self, nvidia=False, opencl=True):
        self._call("zelk_RefreshDeviceList", int(bool(nvidia)), int(bool(opencl)))

    # -- camera description for resampling --------------------------------------

    def set_device_frame_width(self, width):
        self._call("zelk_SetDeviceFrameWidth", int(width))

    def set_device_wavelength_count(self, count):
        self._call("zelk_SetDeviceWavelengthCount", int(count))

    def add_device_wavelength(self, wavelength):
        self._call("zelk_AddDeviceWavelength", float(wavelength))

    def set_device_wavelengths_from_envi_header(self, path):
        self._call("zelk_SetDeviceWavelengthsFromENVIHeaderFile", _file_name(path))

    def set_resampling_grid(self, first, step, last):
        self._call("zelk_SetResamplingWavelengthsGrid", float(first), float(step), float(last))

    def set_resampling(self, mode=1):
        self._call("zelk_SetResampling", int(mode))

    # -- model, input configuration, correction ----------------------------------

    def load_model(self, path):
        """Loads a .zelk or .zpl model file, replacing the project."""
        self._call("zelk_LoadModel", _file_name(path))

    def load_correction(self, directory=None, name=None):
        """Loads white and dark references for the loaded model (zelk_LoadCorrection)."""
        # The handle then reads the report of the last failed reference load, which
        # the library keeps apart from what the call returns.
        self._call(
            "zelk_LoadCorrection",
            None if directory is None else _file_name(directory),
            None if name is None else _file_name(name),
            text="handle",
        )

    @property
    def input_width(self):
        return self._call("zelk_GetInputWidth")

    @property
    def input_height(self):
        """The cube's height; 1 for a line-scan camera."""
        return self._call("zelk_GetInputHeight")

    @property
    def input_bands(self):
        return self._call("zelk_GetInputBands")

    @property
    def input_data_type(self):
        """What the project's camera delivers: 1 unsigned 16-bit, 2 float."""
        return self._call("zelk_GetInputDataType")

    @property
    def input_data_layout(self):
        """The project camera's layout: 1 BIP, 2 BIL, 3 band after band per cube."""
        return self._call("zelk_GetInputDataLayout")

    @property
    def mask_type(self):
        """1: each decision forms its own objects; 2: all foreground decisions together."""
        return self._call("zelk_GetMaskType")

    def set_input_width(self, width):
        """The frame width of a line-scan camera; after load_model."""
        self._call("zelk_SetInputWidth", int(width))

    def set_input_data_layout(self, layout):
        """1 BIP, 2 BIL or 3; the library refuses others in its process-wide pair."""
        self._call("zelk_SetInputDataLayout", int(layout), text="process-wide")
        self._layout = int(layout)

    def set_cube_roi(self, col, row, width, height, fill=0):
        """Classifies only this region of each cube; the rest of the decisions read `fill`."""
        self._call("zelk_SetCubeROI", int(col), int(row), int(width), int(height), int(fill))

    def clear_cube_roi(self):
        self._call("zelk_SetCubeROI", -1, -1, -1, -1, 0)

    def set_segmentation(self, on):
        self._call("zelk_SetSegmentation", int(on))

    def set_min_obj_size(self, size):
        # Refusals return -1; the handle keeps their own code with the text.
        self._call("zelk_SetMinObjSize", int(size), text="handle")

    # -- acquisition ------------------------------------------------------------

    def start_acquisition(self):
        # The type and layout that the start will fix, asked beforehand: the library
        # derives them from the project the same way.
        kind = self._peek("zelk_GetInputDataType") if self._sample_type is None else None
        layout = self._peek("zelk_GetInputDataLayout")
        result = _lib.zelk_StartAcquisition(self._h)
        if kind is not None and result not in _BEFORE_TYPE:
            self._sample_type = kind
        if self._layout is None and layout is not None and result not in _BEFORE_LAYOUT:
            self._layout = layout
        if result < 0:
            # Without a classifier the start returns -103 and keeps -104 with the text.
            raise self._error("zelk_StartAcquisition", result, text="handle")
        # Band after band is the form of the snapshot camera that sends big-endian counts.
        self._big_endian_cubes = layout == _BSQ

    def _peek(self, name):
        if not self._h:
            return None
        value = getattr(_lib, name)(self._h)
        return value if value > 0 else None

    def stop_acquisition(self):
        """Ends the run and returns the library's timing statistics of it."""
        self._call("zelk_StopAcquisition")
        return self.error_message

    def acquisition(self):
        """A run for `with`: started on entry, stopped on exit, also after an error."""
        return Acquisition(self)

    @property
    def sample_dtype(self):
        """The dtype of frames of the current run, None before the first start."""
        return _SAMPLE_DTYPES.get(self._sample_type)

    def _samples(self, data, shapes, dtype):
        """`data` as a C-ordered array of `dtype`, flat or in one of `shapes`."""
        array = np.asarray(data)
        if dtype is not None:
            if not np.can_cast(array.dtype, dtype, casting="same_kind"):
                raise TypeError(f"samples of {array.dtype} cannot be taken as {dtype} without loss")
            array = np.ascontiguousarray(array, dtype=dtype)
        else:
            array = np.ascontiguousarray(array)
        size = int(np.prod(shapes[0]))
        if array.size != size or (array.ndim > 1 and array.shape not in shapes):
            expected = " or ".join(str(s) for s in shapes)
            raise ValueError(f"expected {size} samples, flat or of shape {expected}; got shape {array.shape}")
        return array

    def process_frame(self, frame):
        """One line of a line-scan camera: input_width pixels of input_bands bands, as
        bands x width (BIL) or width x bands (BIP), or flat."""
        width, bands = self.input_width, self.input_bands
        shapes = [(width, bands)] if self._layout == _BIP else [(bands, width)]
        if self._layout not in (_BIP, _BIL):
            shapes.append((width, bands))
        frame = self._samples(frame, shapes, self.sample_dtype)
        self._call("zelk_ProcessFrame", frame.ctypes.data_as(ctypes.c_void_p))

    def process_cube(self, cube):
        """One cube of a snapshot camera: input_height x input_width pixels of input_bands
        bands, as height x width x bands (BIP) for the float and 16-bit cameras, bands x
        height x width for the one that sends big-endian counts band after band."""
        width, height, bands = self.input_width, self.input_height, self.input_bands
        if self._big_endian_cubes:
            dtype, shapes = np.dtype(">u2"), [(bands, height, width)]
        else:
            dtype = self.sample_dtype
            shapes = {
                _BIP: [(height, width, bands)],
                _BIL: [(height, bands, width)],
                _BSQ: [(bands, height, width)],
            }.get(self._layout, [(height, width, bands)])
        cube = self._samples(cube, shapes, dtype)
        self._call("zelk_ProcessCube", cube.ctypes.data_as(ctypes.c_void_p))

    # -- results of the last frame or cube ---------------------------------------

    def object_count(self):
        """Objects finished by the last frame, or found in the last cube."""
        return self._call("zelk_GetObjCount")

    def objects(self):
        """The records of those objects, an array of OBJECT_DTYPE. After a frame that
        finished more objects than the library keeps, the kept ones."""
        records = []
        pointer = POINTER(c_int32)()
        for index in range(self.object_count()):
            result = _lib.zelk_GetObjDataInt(self._h, index, byref(pointer))
            if result == -161 and records:  # past the kept records
                break
            if result < 0:
                raise self._error("zelk_GetObjDataInt", result)
            records.append(ctypes.string_at(pointer, OBJECT_DTYPE.itemsize))
        return np.frombuffer(b"".join(records), dtype=OBJECT_DTYPE).copy()

    def object_class_size(self, index, class_index):
        """Pixels of decision `class_index` in object `index` ('All foreground' objects)."""
        return self._call("zelk_GetObjDataClassSize", int(index), int(class_index))

    def object_class_fraction(self, index, class_index):
        """The same as a fraction of the object's pixels."""
        return self._call("zelk_GetObjDataClassFrac", int(index), int(class_index))

    def object_reg_outputs(self):
        """The mean regression outputs of each object: objects x variables, float32."""
        count, variables = self.object_count(), self.reg_var_count()
        out = np.zeros((count, variables), dtype=np.float32)
        pointer = POINTER(c_float)()
        for index in range(count):
            self._call("zelk_GetObjDataRegOutput", index, byref(pointer))
            out[index] = np.ctypeslib.as_array(pointer, shape=(variables,))
        return out

    def frame_decisions(self):
        """The decisions of the last frame, one uint8 per pixel; 255 marks an object."""
        pointer = self._pointer("zelk_GetFrameDecisions")
        return _copy(pointer, c_uint8, (self.input_width,))

    def cube_decisions(self):
        """The decisions of the last cube, height x width uint8; None before the first run."""
        pointer = _lib.zelk_GetCubeDecisions(self._h)
        if not pointer:
            # The library has no decisions before a first start and says nothing then;
            # a refusal (no handle, a line-scan project, an internal failure) it reports.
            if not self._h or self.error_code in (-212, -199):
                raise self._error("zelk_GetCubeDecisions")
            return None
        return _copy(pointer, c_uint8, (self.input_height, self.input_width))

    def frame_reg_output(self, variable, mask_value=None):
        """Regression variable `variable` of the last frame, one float32 per pixel; with a
        `mask_value`, pixels outside the foreground read it (needs segmentation)."""
        mask = 0 if mask_value is None else 1
        value = 0.0 if mask_value is None else float(mask_value)
        pointer = self._pointer("zelk_GetFrameRegOutputVar", int(variable), mask, value)
        return _copy(pointer, c_float, (self.input_width,))

    def decision_count(self):
        """The classes, then the rejected decision when there is one."""
        return self._call("zelk_GetDecCount")

    def decision_name(self, index):
        return _text(self._pointer("zelk_GetDecName", int(index)))

    def decision_color(self, index):
        r, g, b = c_ubyte(), c_ubyte(), c_ubyte()
        self._call("zelk_GetDecColor", int(index), byref(r), byref(g), byref(b))
        return r.value, g.value, b.value

    def decisions(self):
        """Name and (r, g, b) display colour of every decision, by code."""
        return [Decision(self.decision_name(i), self.decision_color(i)) for i in range(self.decision_count())]

    def reg_var_count(self):
        return self._call("zelk_GetRegVarCount")

    def reg_var_name(self, index):
        name = _lib.zelk_GetRegVarName(self._h, int(index))
        if name is None:
            # Without a regressor the library refuses in its process-wide pair.
            error = self._error("zelk_GetRegVarName")
            if self._h and _lib.zelk_GetRegVarCount(self._h) == 0:
                error = self._error("zelk_GetRegVarName", text="process-wide")
            raise error
        return _text(name)

    def reg_var_names(self):
        return [self.reg_var_name(i) for i in range(self.reg_var_count())]

    def save_image(self, path):
        """Writes the decision image as an indexed PNG in the decisions' colours."""
        self._call("zelk_SaveImage", _file_name(path))


def _copy(pointer, ctype, shape):
    return np.ctypeslib.as_array(ctypes.cast(pointer, POINTER(ctype)), shape=shape).copy()


class Acquisition:
    """A run of a handle for `with`: started on entry and stopped on exit. After the
    exit `log` holds the library's timing statistics of the run."""

    def __init__(self, handle):
        self.handle = handle
        self.log = None

    def __enter__(self):
        self.handle.start_acquisition()
        return self

    def __exit__(self, exc_type, exc, tb):
        try:
            self.log = self.handle.stop_acquisition()
        except ZelkError:
            if exc_type is None:
                raise
            # The error that left the block says more than the failed stop.
