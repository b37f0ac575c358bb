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

A failing call raises ZelkError with the library's code and text; a file that does
not exist raises ZelkFileNotFoundError, which is also a FileNotFoundError. What the
model cannot take (a frame of another shape, a layout of another camera) is refused
with ValueError before the library sees it. Arrays handed out are copies: they stay
valid after the next frame. The library is found through $ZELK_LIBRARY, else in
build/plain of the source tree, else as the installed libzelk.so.5.
"""

import ctypes
import errno
import os
import re
from collections import namedtuple
from ctypes import POINTER, byref, c_float, c_int32, c_ubyte, c_uint8

import numpy as np

from . import _capi, _names

__all__ = [
    "Handle",
    "Acquisition",
    "ZelkError",
    "ZelkFileNotFoundError",
    "Decision",
    "OBJECT_DTYPE",
    "CLASS_SLOTS",
    "version",
    "__version__",
]

#: The version of this binding; it speaks the interface of libzelk.so.5.
__version__ = "5.1.0"

_lib = _capi.load()

#: Counters per decision code in an object record: 20 foreground classes and the unknown one.
CLASS_SLOTS = _names.RECORD["CLASS_SLOTS"]

#: One object record: the integers of zelk_GetObjDataInt, by the names of the header.
OBJECT_DTYPE = np.dtype(
    [
        (name.lower(), np.int32) if name != "CLASS_SIZES" else ("class_sizes", np.int32, (CLASS_SLOTS,))
        for name, _ in sorted(
            ((n, v) for n, v in _names.RECORD.items() if n not in ("CLASS_SLOTS", "RECORD_INTS")), key=lambda nv: nv[1]
        )
    ]
)
assert OBJECT_DTYPE.itemsize == _names.RECORD["RECORD_INTS"] * 4

Decision = namedtuple("Decision", "name color")
Decision.__doc__ = "A decision of the model: its name and its (r, g, b) display colour."
Decision.name.__doc__ = "The decision's name, e.g. 'Unseen in training' for rejected pixels."
Decision.color.__doc__ = "The display colour as (r, g, b), 0 to 255 each."

# Sample types of the input configuration.
_SAMPLE_DTYPES = {1: np.dtype(np.uint16), 2: np.dtype(np.float32)}
# Layouts: 1 pixel after pixel, 2 band after band per line, 3 band after band per cube.
_BIP, _BIL, _BSQ = 1, 2, 3
# Start refusals that come before the start fixes the input type (and the layout):
# no handle, no project or classifier, already running, no usable segmenter, no type.
_E = _names.CODES
_BEFORE_TYPE = {_E[n] for n in ("NULL_POINTER", "NO_PROJECT", "NO_SEGMENTER", "ACQUIRING", "SEGMENTATION", "TYPE_NOT_SET")}
_BEFORE_LAYOUT = _BEFORE_TYPE | {_E["LAYOUT_NOT_SET"]}
_LAYOUT_NAMES = {_BIP: "1 (BIP, width x bands)", _BIL: "2 (BIL, bands x width)", _BSQ: "3 (band after band per cube)"}


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


class ZelkFileNotFoundError(ZelkError, FileNotFoundError):
    """A file handed to the library does not exist: a ZelkError that is also a
    FileNotFoundError, with `filename` set."""

    def __init__(self, code, message, function, filename):
        super().__init__(code, message, function)
        self.errno = errno.ENOENT
        self.strerror = message
        self.filename = os.fspath(filename)

    def __str__(self):
        return f"{self.message or self.function}: {self.filename}"


def _missing(path, function, code=_E["MODEL_OPEN"]):
    """The error of a call given a file that does not exist, or None when it exists."""
    if os.path.exists(path):
        return None
    return ZelkFileNotFoundError(code, f"{function}: No such file: {os.fspath(path)}", function, path)


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
        self._corrected = False  # references loaded for the current model

    # -- lifetime ---------------------------------------------------------------

    def close(self):
        """Ends any run and releases the library's handle; a second call does nothing."""
        h, self._h = self._h, None
        if h:
            _lib.zelk_Release(h)

    @property
    def closed(self):
        """Whether close() has released the library's handle."""
        return self._h is None

    def __enter__(self):
        """The handle itself, released when the `with` block is left."""
        return self

    def __exit__(self, *exc):
        """Releases the handle, also when the block is left by an exception."""
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
        """The number of entries in the device list."""
        return self._call("zelk_GetDeviceCount")

    def device_name(self, index):
        """The name of device list entry `index`, e.g. "CPU: ..." or "OpenCL: ..."."""
        return _text(self._pointer("zelk_GetDeviceName", int(index)))

    def devices(self):
        """The names of the device list: the CPU entries first, then the GPUs."""
        return [self.device_name(i) for i in range(self.device_count())]

    def set_device(self, index):
        """Chooses list entry `index` for models loaded from now on."""
        self._call("zelk_SetDevice", int(index))

    def refresh_device_list(self, nvidia=False, opencl=True):
        """Rebuilds the device list, with the GPU families asked for when they are there."""
        self._call("zelk_RefreshDeviceList", int(bool(nvidia)), int(bool(opencl)))

    # -- camera description for resampling --------------------------------------

    def set_device_frame_width(self, width):
        """The camera's frame width in pixels, for resampling."""
        self._call("zelk_SetDeviceFrameWidth", int(width))

    def set_device_wavelength_count(self, count):
        """The camera's band count, for resampling; empties the wavelengths given before."""
        self._call("zelk_SetDeviceWavelengthCount", int(count))

    def add_device_wavelength(self, wavelength):
        """Appends one of the camera's wavelengths (nm), after set_device_wavelength_count."""
        self._call("zelk_AddDeviceWavelength", float(wavelength))

    def set_device_wavelengths_from_envi_header(self, path):
        """The camera's frame width, band count and wavelengths from an ENVI header:
        its 'samples', 'bands' and 'wavelength' fields."""
        function = "zelk_SetDeviceWavelengthsFromENVIHeaderFile"
        missing = _missing(path, function, -1)
        if missing:
            raise missing
        result = _lib.zelk_SetDeviceWavelengthsFromENVIHeaderFile(self._h, _file_name(path))
        if result == -1:
            # The library keeps no text for this refusal: the likely cause is named here.
            raise ZelkError(-1, f"{function}: {_header_trouble(path)}", function)
        if result < 0:
            raise self._error(function, result)

    def set_resampling_grid(self, first, step, last):
        """The model's side of resampling: wavelengths first, first + step, ... up to last."""
        self._call("zelk_SetResamplingWavelengthsGrid", float(first), float(step), float(last))

    def set_resampling(self, mode=1):
        """Switches resampling on (mode 1) for the next load_model: the camera's bands,
        described above, are resampled onto the grid."""
        self._call("zelk_SetResampling", int(mode))

    # -- model, input configuration, correction ----------------------------------

    def load_model(self, path):
        """Loads a .zelk or .zpl model file, replacing the project."""
        result = _lib.zelk_LoadModel(self._h, _file_name(path))
        if result == _E["MODEL_OPEN"] and not os.path.exists(path):
            raise ZelkFileNotFoundError(result, self.error_message, "zelk_LoadModel", path)
        if result < 0:
            raise self._error("zelk_LoadModel", result)
        self._corrected = False

    def load_correction(self, directory=None, name=None):
        """Loads white and dark references for the loaded model (zelk_LoadCorrection):
        the scans "whiteReference" and "darkReference" in `directory`. Frames are then
        16-bit counts, band after band (BIL), that the library turns into reflectance."""
        if directory is not None:
            missing = _missing(directory, "zelk_LoadCorrection")
            if missing:
                raise missing
        if self._effective_layout() == _BIP:
            raise ValueError(
                "references correct frames band after band only: the frames are set to layout "
                f"{_LAYOUT_NAMES[_BIP]}; call set_input_data_layout(2) first"
            )
        # The handle then reads the report of the last failed reference load, which
        # the library keeps apart from what the call returns.
        self._call(
            "zelk_LoadCorrection",
            None if directory is None else _file_name(directory),
            None if name is None else _file_name(name),
            text="handle",
        )
        self._corrected = True

    def _effective_layout(self):
        """The layout frames take now: the one set, else the model's; None without a model."""
        return self._layout if self._layout is not None else self._peek("zelk_GetInputDataLayout")

    @property
    def input_width(self):
        """The width of a frame (line-scan) or of a cube (snapshot), in pixels."""
        return self._call("zelk_GetInputWidth")

    @property
    def input_height(self):
        """The cube's height; 1 for a line-scan camera."""
        return self._call("zelk_GetInputHeight")

    @property
    def input_bands(self):
        """The bands of each pixel that the model takes."""
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
        """1 BIP, 2 BIL or 3 (band after band per cube). A line-scan model takes frames
        in layout 1 or 2 only, and only 2 once references are loaded; other layouts
        raise ValueError. The library refuses layouts outside 1 to 3 itself."""
        layout = int(layout)
        if layout in _LAYOUT_NAMES and self._h and _lib.zelk_GetInputHeight(self._h) == 1:
            if layout == _BSQ:
                raise ValueError(
                    f"layout {_LAYOUT_NAMES[_BSQ]} is for snapshot cubes; frames of this line-scan model "
                    f"take layout {_LAYOUT_NAMES[_BIP]} or {_LAYOUT_NAMES[_BIL]}"
                )
            if layout == _BIP and self._corrected:
                raise ValueError(
                    f"references are loaded, and they correct frames in layout {_LAYOUT_NAMES[_BIL]} only, "
                    f"not {_LAYOUT_NAMES[_BIP]}"
                )
        self._call("zelk_SetInputDataLayout", layout, text="process-wide")
        self._layout = layout

    def set_cube_roi(self, col, row, width, height, fill=0):
        """Classifies only this region of each cube; the rest of the decisions read `fill`."""
        self._call("zelk_SetCubeROI", int(col), int(row), int(width), int(height), int(fill))

    def clear_cube_roi(self):
        """Classifies whole cubes again."""
        self._call("zelk_SetCubeROI", -1, -1, -1, -1, 0)

    def set_segmentation(self, on):
        """Switches the segmentation of objects on or off for the next start."""
        self._call("zelk_SetSegmentation", int(on))

    def set_min_obj_size(self, size):
        """The smallest object, in pixels; smaller ones are dropped."""
        # Refusals return -1; the handle keeps their own code with the text.
        self._call("zelk_SetMinObjSize", int(size), text="handle")

    # -- acquisition ------------------------------------------------------------

    def start_acquisition(self):
        """Starts a run: the sample type and layout of frames are fixed from here."""
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

    def _samples(self, data, shape, dtype, what):
        """`data` as a C-ordered array of `dtype` in exactly `shape`: a flat array or one
        of another order would be read in the wrong order without a word."""
        array = np.asarray(data)
        if array.shape != shape:
            raise ValueError(f"{what}: expected an array of shape {shape}, got shape {array.shape}")
        if dtype is not None:
            if not np.can_cast(array.dtype, dtype, casting="same_kind"):
                raise TypeError(f"samples of {array.dtype} cannot be taken as {dtype} without loss")
            return np.ascontiguousarray(array, dtype=dtype)
        return np.ascontiguousarray(array)

    def process_frame(self, frame):
        """One line of a line-scan camera: input_width pixels of input_bands bands, as a
        2-D array of bands x width for layout 2 (BIL, the default of most models) or
        width x bands for layout 1 (BIP)."""
        width, bands = self.input_width, self.input_bands
        layout = self._effective_layout()
        if layout == _BIP:
            shape, what = (width, bands), "a BIP frame (layout 1) is width x bands"
        else:
            shape, what = (bands, width), "a BIL frame (layout 2) is bands x width"
        frame = self._samples(frame, shape, self.sample_dtype, what)
        self._call("zelk_ProcessFrame", frame.ctypes.data_as(ctypes.c_void_p))

    def process_cube(self, cube):
        """One cube of a snapshot camera: input_height x input_width pixels of input_bands
        bands, as height x width x bands (BIP) for the float and 16-bit cameras, bands x
        height x width for the one that sends big-endian counts band after band."""
        width, height, bands = self.input_width, self.input_height, self.input_bands
        if self._big_endian_cubes:
            dtype, shape, what = np.dtype(">u2"), (bands, height, width), "a cube of this camera is bands x height x width"
        else:
            dtype = self.sample_dtype
            shape, what = {
                _BIL: ((height, bands, width), "a BIL cube (layout 2) is height x bands x width"),
                _BSQ: ((bands, height, width), "a BSQ cube (layout 3) is bands x height x width"),
            }.get(self._layout, ((height, width, bands), "a BIP cube (layout 1) is height x width x bands"))
        cube = self._samples(cube, shape, dtype, what)
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
            if result == _E["OBJECT_INDEX"] and records:  # past the kept records
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
            if not self._h or self.error_code in (_E["SNAPSHOT_EXPECTED"], _E["INTERNAL"]):
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
        """The name of decision `index`."""
        return _text(self._pointer("zelk_GetDecName", int(index)))

    def decision_color(self, index):
        """The display colour of decision `index` as (r, g, b)."""
        r, g, b = c_ubyte(), c_ubyte(), c_ubyte()
        self._call("zelk_GetDecColor", int(index), byref(r), byref(g), byref(b))
        return r.value, g.value, b.value

    def decisions(self):
        """Name and (r, g, b) display colour of every decision, by code."""
        return [Decision(self.decision_name(i), self.decision_color(i)) for i in range(self.decision_count())]

    def reg_var_count(self):
        """The number of regression variables; 0 without a regressor."""
        return self._call("zelk_GetRegVarCount")

    def reg_var_name(self, index):
        """The name of regression variable `index`."""
        name = _lib.zelk_GetRegVarName(self._h, int(index))
        if name is None:
            # Without a regressor the library refuses in its process-wide pair.
            error = self._error("zelk_GetRegVarName")
            if self._h and _lib.zelk_GetRegVarCount(self._h) == 0:
                error = self._error("zelk_GetRegVarName", text="process-wide")
            raise error
        return _text(name)

    def reg_var_names(self):
        """The names of all regression variables, by index."""
        return [self.reg_var_name(i) for i in range(self.reg_var_count())]

    def save_image(self, path):
        """Writes the decision image as an indexed PNG in the decisions' colours."""
        self._call("zelk_SaveImage", _file_name(path))


def _header_trouble(path):
    """Why the library could not take wavelengths from the ENVI header at `path`."""
    try:
        with open(path, encoding="latin-1") as f:
            text = f.read()
    except OSError as e:
        return f"cannot read {path}: {e.strerror}"
    fields = {}
    for m in re.finditer(r"^\s*([^=\n]+?)\s*=\s*(\{[^}]*\}|[^\n]*)", text, re.M):
        fields.setdefault(m.group(1).strip().lower(), m.group(2).strip())
    for name in ("bands", "samples"):
        if not re.fullmatch(r"\d+", fields.get(name, "")):
            return f"{path} has no '{name}' field with a whole number"
    if "wavelength" not in fields:
        return f"{path} has no 'wavelength' list"
    values = [v.strip() for v in fields["wavelength"].strip("{}").split(",") if v.strip()]
    odd = [v for v in values if not re.fullmatch(r"[0-9.]+", v)]
    if odd:
        return (f"the 'wavelength' list of {path} holds {odd[0]!r}: the library reads plain decimals only, "
                "without a sign or an exponent")
    if len(values) < int(fields["bands"]):
        return f"the 'wavelength' list of {path} has {len(values)} values for {fields['bands']} bands"
    return f"{path} gives no wavelengths the library can read"


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
