"""The C library: where it is, its records and functions, and its status words as exceptions."""

import ctypes
import os
from ctypes import POINTER, c_char_p, c_double, c_float, c_int32, c_uint8, c_uint32, c_void_p
from pathlib import Path

PERCENT_WHOLE = 100

_NAMES = {
    0x80000000: "ZELVAN_TESSALINE4_ERROR_GENERAL",
    0x80000001: "ZELVAN_TESSALINE4_ERROR_PARAM",
    0x80000002: "ZELVAN_TESSALINE4_ERROR_STATE",
    0x80000004: "ZELVAN_TESSALINE4_ERROR_NOMEM",
    0x80000010: "ZELVAN_TESSALINE4_ERROR_UNSUPPORTED",
    0x80000080: "ZELVAN_TESSALINE4_ERROR_TIMEOUT",
    0xC0000000: "ZELVAN_TESSALINE4_ERROR_RESOURCE",
}


class Handle(ctypes.Structure):
    _fields_ = [("pointer", c_void_p)]


class ImageDataEx(ctypes.Structure):
    _fields_ = [
        ("width", c_int32),
        ("height", c_int32),
        ("plane0", c_void_p),
        ("plane1", c_void_p),
        ("plane2", c_void_p),
        ("pitch0", c_int32),
        ("pitch1", c_int32),
        ("pitch2", c_int32),
    ]


class FrameInfo(ctypes.Structure):
    _fields_ = [
        ("score", c_int32),
        ("order", c_int32),
        ("mergeStatus", c_int32),
        ("trackFailure", c_uint32),
        ("motion", c_double * 9),
    ]


class FineInfo(ctypes.Structure):
    _fields_ = [
        ("noise", c_double * 3),
        ("lumaStrength", c_double),
        ("chromaStrength", c_double),
        ("mapWidth", c_int32),
        ("mapHeight", c_int32),
    ]


class FineFrameInfo(ctypes.Structure):
    _fields_ = [("residual", c_double), ("cornerSigma", c_double), ("share", c_double)]


ProgressCallback = ctypes.CFUNCTYPE(c_int32, c_void_p, c_int32)

_HANDLE = POINTER(Handle)
_FUNCTIONS = {
    "getVersion": (c_char_p, []),
    "getStatusText": (c_char_p, [c_uint32]),
    "getBufferSize": (c_int32, [c_int32, c_int32, c_int32, c_char_p]),
    "initialize": (c_uint32, [_HANDLE, c_void_p, c_int32, c_int32, c_int32]),
    "finalize": (c_uint32, [_HANDLE]),
    "setImageFormat": (c_uint32, [_HANDLE, c_char_p]),
    "setProgress": (c_uint32, [_HANDLE, ProgressCallback, c_void_p]),
    "setCoreSetting": (c_uint32, [_HANDLE, c_int32, c_uint32]),
    "startEx": (c_uint32, [_HANDLE, POINTER(ImageDataEx), c_int32]),
    "addImageEx": (c_uint32, [_HANDLE, POINTER(ImageDataEx)]),
    "getResult": (c_uint32, [_HANDLE]),
    "reset": (c_uint32, [_HANDLE]),
    "getFrameInfo": (c_uint32, [_HANDLE, c_int32, POINTER(FrameInfo)]),
    "getFineInfo": (c_uint32, [_HANDLE, POINTER(FineInfo)]),
    "getFineFrameInfo": (c_uint32, [_HANDLE, c_int32, POINTER(FineFrameInfo)]),
    "getFineMap": (c_uint32, [_HANDLE, c_int32, POINTER(c_uint8)]),
    "setSharpnessEnhanceSigma_internal": (c_uint32, [_HANDLE, c_double, c_double]),
    "setNoiseReductionLevels": (c_uint32, [_HANDLE, POINTER(c_float), c_int32]),
    "setUvNoiseReductionThres": (c_uint32, [_HANDLE, POINTER(c_int32), c_int32]),
}
# Names of settings, as the command-line tool's options have them, with their setters.
INT_SETTERS = {
    "fine": "setFineMode",
    "frames_to_merge": "setNumberOfMergeImages",
    "auto_scaling": "setAutoScaling",
    "auto_sorting": "setAutoSorting",
    "obj_blur_level": "setObjBlurCorrectionLevel",
    "luma_nr_level": "setLumaNoiseReductionLevel",
    "chroma_nr_level": "setChromaNoiseReductionLevel",
    "saturation": "setSaturationLevel",
    "gain": "setGain",
    "gamma": "setGamma",
    "contrast": "setContrast",
    "sharpness": "setSharpnessEnhanceLevel",
    "luma_nr_times": "setLumaNoiseReductionTimes_internal",
    "chroma_nr_times": "setChromaNoiseReductionTimes_internal",
    "remove_spike": "setRemoveSpikeNoiseLevel_internal",
}
REAL_SETTERS = {
    "obj_blur_raw": "setObjBlurCorrectionLevel_internal",
    "luma_nr_raw": "setLumaNoiseReductionLevel_internal",
    "chroma_nr_raw": "setChromaNoiseReductionLevel_internal",
}


class Error(RuntimeError):
    """The library refused a call.

    status: its 32-bit word; name: of the status in the C header, or the word in hexadecimal where several errors share
    it; the text of the exception says what was refused and why.
    """

    def __init__(self, what: str, status: int):
        self.status = status
        self.name = _NAMES.get(status, f"0x{status:08X}")
        super().__init__(f"{what}: {library().getStatusText(status).decode()} ({self.name})")

    def __reduce__(self):  # across processes
        return _rebuilt, (type(self), str(self), self.status, self.name)


def _rebuilt(kind: type, text: str, status: int, name: str) -> "Error":
    error = kind.__new__(kind, text)
    error.args, error.status, error.name = (text,), status, name
    return error


class Stopped(Error):
    """The progress callback answered False."""


class _Library:
    """The functions without their prefix. A call releases the interpreter's lock."""

    def __init__(self, path: str):
        loaded = ctypes.CDLL(path)
        functions = dict(_FUNCTIONS)
        functions |= {name: (c_uint32, [_HANDLE, c_int32]) for name in INT_SETTERS.values()}
        functions |= {name: (c_uint32, [_HANDLE, c_double]) for name in REAL_SETTERS.values()}
        for name, (result, arguments) in functions.items():
            function = getattr(loaded, f"zelvan_Tessaline4_{name}")
            function.restype, function.argtypes = result, arguments
            setattr(self, name, function)


_loaded: _Library | None = None


def library() -> _Library:
    """Loaded once: what TESSALINE4_LIBRARY names, else what came with the package, else the system's."""
    global _loaded
    if _loaded is None:
        own = Path(__file__).with_name("libzelvan_tessaline4.so")
        named = os.environ.get("TESSALINE4_LIBRARY")
        _loaded = _Library(named or (str(own) if own.exists() else "libzelvan_tessaline4.so.4"))
    return _loaded


def library_version() -> str:
    return library().getVersion().decode()


def check(status: int, what: str) -> None:
    if status != 0:
        raise Error(what, status)
