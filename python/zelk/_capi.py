"""Loading of the shared library and the prototypes of its exported functions."""

import ctypes
import os
from ctypes import POINTER, c_char_p, c_float, c_int, c_int32, c_ubyte, c_uint, c_void_p
from pathlib import Path

# The major version of the interface this binding speaks: the library's SONAME.
SONAME = "libzelk.so.5"

_H = c_void_p  # ZelkHandle*

# name: (result type, argument types), in the order of include/zelk.h.
PROTOTYPES = {
    "zelk_Init": (c_void_p, [c_char_p]),
    "zelk_Release": (None, [_H]),
    "zelk_GetVersion": (c_char_p, []),
    "zelk_GetErrorCode": (c_int, [_H]),
    "zelk_GetErrorMsg": (c_char_p, [_H]),
    "zelk_GetDeviceCount": (c_int, [_H]),
    "zelk_GetDeviceName": (c_char_p, [_H, c_int]),
    "zelk_SetDevice": (c_int, [_H, c_int]),
    "zelk_RefreshDeviceList": (c_int, [_H, c_int, c_int]),
    "zelk_SetDeviceFrameWidth": (c_int, [_H, c_int]),
    "zelk_SetDeviceWavelengthCount": (c_int, [_H, c_int]),
    "zelk_AddDeviceWavelength": (c_int, [_H, c_float]),
    "zelk_SetDeviceWavelengthsFromENVIHeaderFile": (c_int, [_H, c_char_p]),
    "zelk_SetResamplingWavelengthsGrid": (c_int, [_H, c_float, c_float, c_float]),
    "zelk_SetResampling": (c_int, [_H, c_int]),
    "zelk_LoadModel": (c_int, [_H, c_char_p]),
    "zelk_GetInputWidth": (c_int, [_H]),
    "zelk_GetInputHeight": (c_int, [_H]),
    "zelk_GetInputBands": (c_int, [_H]),
    "zelk_GetInputDataType": (c_int, [_H]),
    "zelk_GetInputDataLayout": (c_int, [_H]),
    "zelk_GetMaskType": (c_int, [_H]),
    "zelk_SetInputWidth": (c_int, [_H, c_int]),
    "zelk_SetInputDataLayout": (c_int, [_H, c_uint]),
    "zelk_SetCubeROI": (c_int, [_H, c_int, c_int, c_int, c_int, c_ubyte]),
    "zelk_SetSegmentation": (c_int, [_H, c_uint]),
    "zelk_SetMinObjSize": (c_int, [_H, c_int]),
    "zelk_StartAcquisition": (c_int, [_H]),
    "zelk_StopAcquisition": (c_int, [_H]),
    "zelk_ProcessFrame": (c_int, [_H, c_void_p]),
    "zelk_ProcessCube": (c_int, [_H, c_void_p]),
    "zelk_GetObjCount": (c_int, [_H]),
    "zelk_GetObjDataInt": (c_int, [_H, c_int, POINTER(POINTER(c_int32))]),
    "zelk_GetObjDataClassSize": (c_int, [_H, c_int, c_uint]),
    "zelk_GetObjDataClassFrac": (c_float, [_H, c_int, c_uint]),
    "zelk_GetObjDataRegOutput": (c_int, [_H, c_int, POINTER(POINTER(c_float))]),
    "zelk_GetFrameDecisions": (c_void_p, [_H]),
    "zelk_GetCubeDecisions": (c_void_p, [_H]),
    "zelk_GetFrameRegOutputVar": (c_void_p, [_H, c_int, c_int, c_float]),
    "zelk_GetDecCount": (c_int, [_H]),
    "zelk_GetDecName": (c_char_p, [_H, c_int]),
    "zelk_GetDecColor": (c_int, [_H, c_int, POINTER(c_ubyte), POINTER(c_ubyte), POINTER(c_ubyte)]),
    "zelk_GetRegVarCount": (c_int, [_H]),
    "zelk_GetRegVarName": (c_char_p, [_H, c_int]),
    "zelk_LoadCorrection": (c_int, [_H, c_char_p, c_char_p]),
    "zelk_SaveImage": (c_int, [_H, c_char_p]),
}


def _candidates():
    """Where the library is looked for: $ZELK_LIBRARY alone when it is set; otherwise the
    build tree when this package lies in the source tree, then the installed
    libzelk.so.5 through the system's loader (LD_LIBRARY_PATH, ldconfig's cache)."""
    explicit = os.environ.get("ZELK_LIBRARY")
    if explicit:
        return [explicit]
    build = Path(__file__).resolve().parents[2] / "build" / "plain" / "libzelk.so"
    return ([str(build)] if build.exists() else []) + [SONAME]


def load():
    """The library with the prototypes of all exported functions set."""
    errors = []
    for name in _candidates():
        try:
            lib = ctypes.CDLL(name)
            break
        except OSError as e:
            errors.append(str(e))
    else:
        raise OSError("cannot load the zelk library (set ZELK_LIBRARY to its path): " + "; ".join(errors))
    for name, (restype, argtypes) in PROTOTYPES.items():
        function = getattr(lib, name)
        function.restype = restype
        function.argtypes = argtypes
    return lib
