"""Bursts: settings, the instance with its memory, and what a merge gives back."""

import ctypes
import enum
import time
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from typing import Any, NamedTuple, TypedDict, Unpack

import numpy as np

from . import _files, _frames, _library
from ._frames import Layout, Planes
from ._library import Error, Stopped, check, library

MOST_FRAMES = 10

Progress = Callable[[int], bool | None]
"""Called with per cent, 1 to 100, never decreasing, on the thread that merges. False stops the merge, as an exception
does, which then comes out of the merge. It must not use the burst that calls it."""


class Settings(TypedDict, total=False):
    """Settings by the names of the command-line tool's options; `tessaline4 merge --help` tells their defaults."""

    fine: bool  # default True: aligned below the pixel, strengths by the noise; False: the exact road
    frames_to_merge: int  # 1 to 10, the sharpest
    threads: int  # default: one per processor
    processor_mask: int  # bits of the processors to pin threads to
    auto_scaling: bool  # crop to what all frames show, and scale back to full size
    auto_sorting: bool  # False: the first frame is the base
    obj_blur_level: int  # 0 to 7, care against ghosts
    luma_nr_level: int  # 0 to 7
    chroma_nr_level: int  # 0 to 7
    saturation: int  # 0 to 4096, 1024 = unchanged
    gain: int  # per cent, 0 to 1000, of the frames
    gamma: int  # per cent, 0 to 1000
    contrast: int  # 0 to 2000, without an effect
    sharpness: int  # 0 to 10000
    luma_nr_times: int
    chroma_nr_times: int
    remove_spike: int
    obj_blur_raw: float  # behind the level
    luma_nr_raw: float
    chroma_nr_raw: float
    sharpness_sigmas: tuple[float, float]  # pixels
    luma_nr_table: Sequence[float]  # item k: strength where k frames agree
    chroma_nr_table: Sequence[int]
    library_defaults: bool  # start from the library's defaults in place of the tool's


_KNOWN = frozenset(Settings.__annotations__)
# What looks best on bursts of known truth; the fine mode chooses by the noise.
_EXACT_DEFAULTS = {"sharpness": 40, "luma_nr_level": 4, "chroma_nr_level": 0, "obj_blur_level": 1, "remove_spike": 0}
# Raw values lose against a level: one that is given takes the place of the default level.
_BEATEN_BY = {
    "obj_blur_level": ("obj_blur_raw",),
    "luma_nr_level": ("luma_nr_raw", "luma_nr_times"),
    "chroma_nr_level": ("chroma_nr_raw", "chroma_nr_times"),
}


def chosen_settings(given: dict[str, Any]) -> dict[str, Any]:
    """What is given, over the defaults."""
    for name in given:
        if name not in _KNOWN:
            raise TypeError(f"there is no setting {name!r}")
    given = {name: value for name, value in given.items() if value is not None}
    if given.pop("library_defaults", False):
        return given
    defaults: dict[str, Any] = {"fine": True}
    if not given.get("fine", True):
        defaults |= {
            name: value
            for name, value in _EXACT_DEFAULTS.items()
            if not any(raw in given for raw in _BEATEN_BY.get(name, ()))
        }
    return defaults | given


class FrameStatus(enum.IntEnum):
    MERGED = 0
    BAD_MOTION = 1  # not tracked, or too little overlap with the base
    BLURRED = 2  # much less sharp than the base
    GHOST = 3  # too much of it differs from the base
    NOT_USED = 4  # behind the number of frames to merge


@dataclass(frozen=True)
class Frame:
    """What became of a frame."""

    status: FrameStatus
    score: int  # sharpness; 0 for all without auto_sorting
    order: int  # place in the merge: 0 is the base
    track_failure: int  # bits, 0 for a tracked frame
    # The rest is the fine mode's.
    residual: float | None = None  # share of the base's structure that it does not show, 0 to 1
    corner_sigma: float | None = None  # standard deviation of its motion at the worst corner, pixels
    share: float | None = None  # of the picture that was used of it, 0 to 1


@dataclass(frozen=True)
class Fine:
    """What the fine mode found out."""

    noise: tuple[float, float, float]  # standard deviation of one frame: luma and both chroma bytes
    luma_strength: float
    chroma_strength: float
    coverage: np.ndarray  # float32, a quarter as high and wide: how many frames each place got


class Result(NamedTuple):
    """A merged burst.

    picture: as the frames came: uint8 array, tuple of planes, or PIL image in RGB (for paths, too) with the EXIF and
    ICC profile of the base.
    frames: a Frame for each frame, in the order given.
    motions: float64 of shape (n, 3, 3), with [2, 2] = 1: from points (x, y, 1) of the result to points of the frame,
    in pixels; the identity for a frame that was not tracked.
    """

    picture: Any
    frames: list[Frame]
    motions: np.ndarray
    base: int  # index of the base
    fine: Fine | None
    seconds: float  # in the library
    planes: Planes

    def save(self, path: Any, **options: Any) -> None:
        """Writes the picture as PIL knows the ending; options are PIL's. A JPEG (quality 95 unless told) gets the
        4:2:0 samples without a trip through RGB, and EXIF and ICC profile of the base."""
        from PIL import Image

        ending = str(path)[str(path).rfind(".") :].lower()
        format = Image.registered_extensions().get(ending)
        if format is None:
            raise ValueError(f"{path}: PIL writes no file of this ending")
        data = _frames.encoded(self.planes, format, **options)
        with open(path, "wb") as file:
            file.write(data)


def _aligned(bytes_: int) -> np.ndarray:
    memory = np.empty(bytes_ + 64, np.uint8)
    skew = -memory.ctypes.data % 64
    return memory[skew : skew + bytes_]


class Burst:
    """One size and setting for many bursts: memory and threads are kept. A context manager; not for two threads at
    once.

        with Burst(4000, 3000, 8, threads=2) as burst:
            for frames in bursts:
                picture = burst.merge(frames).picture

    width, height: pixels, 640 x 480 and larger in either orientation. frames: the most in a burst, 2 to 10.
    format: of arrays, see merge. overwrite: NV21 and NV12 arrays may be changed, which saves a copy.
    """

    def __init__(
        self,
        width: int,
        height: int,
        frames: int = MOST_FRAMES,
        *,
        format: str | None = None,
        overwrite: bool = False,
        progress: Progress | None = None,
        **settings: Unpack[Settings],
    ):
        self._handle = _library.Handle()
        self._settings = chosen_settings(dict(settings))
        if not 2 <= frames <= MOST_FRAMES:
            raise ValueError(f"a burst has 2 to {MOST_FRAMES} frames, not {frames}")
        size = library().getBufferSize(width, height, frames, b"YVU420_SEMIPLANAR")
        if size <= 0:
            raise ValueError(f"frames of {width} x {height} are too large, or no frames at all")
        self._size = (width, height)
        self._most = frames
        self._format = format
        self._overwrite = overwrite
        self.progress = progress
        self._memory = _aligned(size)
        self._started: tuple[int, bool] | None = None  # frames and order of chroma that the instance stands for
        self._raised: BaseException | None = None
        self._stopped = False
        self._callback = _library.ProgressCallback(self._tell)
        half = ((height + 1) // 2, (width + 1) // 2, 2)
        self._output = Planes(np.empty((height, width), np.uint8), np.empty(half, np.uint8))
        self._initialize()  # tells of bad sizes and settings at once

    def __enter__(self) -> "Burst":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None and self._handle.pointer:
            library().finalize(ctypes.byref(self._handle))

    def close(self) -> None:
        """Stops the threads and gives the memory back; merge is an error from here on."""
        if self._memory is None:
            return
        self._finalize()
        self._memory = self._callback = None

    def merge(self, frames: Sequence[Any]) -> Result:
        """A burst of this size: see the function merge. After an error the next one starts afresh."""
        self._check_open(len(frames))
        layout = _frames.layout_of(frames[0], self._format)
        planes = []
        for i, frame in enumerate(frames):
            if _frames.layout_of(frame, self._format) != layout:
                raise ValueError(f"frame {i} is of another kind than frame 0")
            planes.append(_frames.to_planes(frame, layout))
        return self.merge_planes(planes, layout)

    def merge_planes(self, planes: list[Planes], layout: Layout = Layout("nv21", split=True)) -> Result:
        """Of frames that are planes already; for this package's own use."""
        self._check_open(len(planes))
        for i, frame in enumerate(planes):
            if frame.size != self._size:
                raise ValueError(f"frame {i} is {frame.size}, not {self._size} as the burst: (width, height)")
        return self._run([self._held(p) for p in planes], layout)

    def _check_open(self, count: int) -> None:
        if self._memory is None:
            raise ValueError("the burst is closed")
        if not 2 <= count <= self._most:
            raise ValueError(f"{count} frames; this burst has memory for 2 to {self._most}")

    def _held(self, planes: Planes) -> Planes:
        """Rows that are whole, and memory that may be changed where the library does."""
        changes = not self._settings.get("fine") or "gain" in self._settings or "gamma" in self._settings
        keep = planes.own or self._overwrite or not changes
        arrays = [planes.luma, planes.pairs]
        for i, array in enumerate(arrays):
            # What may be overwritten must be writable; else the library works on a copy.
            fits = array.flags.c_contiguous and (array.flags.writeable or not changes)
            if not (keep and fits):
                arrays[i] = array.copy(order="C")
        return Planes(*arrays, planes.uv, True, planes.info)

    def _run(self, planes: list[Planes], layout: Layout) -> Result:
        count, uv = len(planes), planes[0].uv
        lib, handle = library(), ctypes.byref(self._handle)
        self._raised, self._stopped = None, False
        begin = time.perf_counter()
        try:
            self._ready(count, uv)
            for i, frame in enumerate(planes):
                self._check(lib.addImageEx(handle, ctypes.byref(_record(frame))), f"frame {i} was refused")
            self._check(lib.getResult(handle), "the merge failed")
            if self._raised is not None:  # by the last call of the callback, too late for the library
                raise self._raised
        except BaseException:
            self._finalize()  # the next burst starts from nothing
            raise
        seconds = time.perf_counter() - begin
        infos = [self._get("getFrameInfo", _library.FrameInfo, i) for i in range(count)]
        fine = self._fine_info() if self._settings.get("fine") else None
        results = []
        for i, info in enumerate(infos):
            more: dict[str, float] = {}
            if fine is not None:
                own = self._get("getFineFrameInfo", _library.FineFrameInfo, i)
                more = {"residual": own.residual, "corner_sigma": own.cornerSigma, "share": own.share}
            results.append(Frame(FrameStatus(info.mergeStatus), info.score, info.order, info.trackFailure, **more))
        motions = np.array([info.motion for info in infos], np.float64).reshape(count, 3, 3)
        base = min(range(count), key=lambda i: infos[i].order)
        output = Planes(self._output.luma.copy(), self._output.pairs.copy(), uv, True, planes[base].info)
        return Result(_frames.from_planes(output, layout), results, motions, base, fine, seconds, output)

    def _ready(self, count: int, uv: bool) -> None:
        """An instance that awaits the first frame: by a reset where it can be."""
        lib, handle = library(), ctypes.byref(self._handle)
        if self._started == (count, uv) and self._handle.pointer:
            if lib.reset(handle) == 0:
                return
        if self._started is not None or not self._handle.pointer:
            self._finalize()
            self._initialize()
        check(lib.setImageFormat(handle, b"YUV420_SEMIPLANAR" if uv else b"YVU420_SEMIPLANAR"), "the format")
        check(lib.startEx(handle, ctypes.byref(_record(self._output)), count), "the start of the burst")
        self._started = (count, uv)

    def _initialize(self) -> None:
        lib, handle = library(), ctypes.byref(self._handle)
        width, height = self._size
        check(
            lib.initialize(handle, self._memory.ctypes.data, self._memory.size, width, height),
            f"an instance for {width} x {height}",
        )
        try:
            self._apply_settings()
            check(lib.setProgress(handle, self._callback, None), "the progress callback")
        except BaseException:
            self._finalize()
            raise

    def _finalize(self) -> None:
        self._started = None
        if self._handle.pointer:
            check(library().finalize(ctypes.byref(self._handle)), "the end of the instance")

    def _apply_settings(self) -> None:
        lib, handle = library(), ctypes.byref(self._handle)
        settings = dict(self._settings)
        threads, mask = settings.pop("threads", None), settings.pop("processor_mask", 0)
        if threads is not None or mask:
            check(lib.setCoreSetting(handle, -1 if threads is None else threads, mask), f"threads={threads}")
        for name, value in settings.items():
            if name in _library.INT_SETTERS:
                status = getattr(lib, _library.INT_SETTERS[name])(handle, _int32(name, value))
            elif name in _library.REAL_SETTERS:
                status = getattr(lib, _library.REAL_SETTERS[name])(handle, float(value))
            elif name == "sharpness_sigmas":
                status = lib.setSharpnessEnhanceSigma_internal(handle, *map(float, value))
            elif name == "luma_nr_table":
                status = lib.setNoiseReductionLevels(handle, (ctypes.c_float * len(value))(*value), len(value) - 1)
            else:
                status = lib.setUvNoiseReductionThres(handle, (ctypes.c_int32 * len(value))(*value), len(value) - 1)
            check(status, f"{name}={value!r}")

    def _tell(self, _: Any, percent: int) -> int:
        if self.progress is None:
            return 0
        try:
            self._stopped = self.progress(percent) is False
        except BaseException as error:  # it cannot pass through the library: kept, and raised behind it
            self._raised = error
            return 1
        return int(self._stopped)

    def _check(self, status: int, what: str) -> None:
        if self._raised is not None:
            raise self._raised
        if status != 0 and self._stopped:
            raise Stopped("the merge was stopped", status)
        check(status, what)

    def _get(self, function: str, kind: type, *arguments: int) -> Any:
        info = kind()
        check(getattr(library(), function)(ctypes.byref(self._handle), *arguments, ctypes.byref(info)), function)
        return info

    def _fine_info(self) -> Fine:
        info = self._get("getFineInfo", _library.FineInfo)
        counts = np.empty((info.mapHeight, info.mapWidth), np.uint8)
        at = counts.ctypes.data_as(ctypes.POINTER(ctypes.c_uint8))
        check(library().getFineMap(ctypes.byref(self._handle), -1, at), "getFineMap")
        return Fine(tuple(info.noise), info.lumaStrength, info.chromaStrength, counts.astype(np.float32) / 16)


def _int32(name: str, value: Any) -> int:
    if int(value) != value or not -(2**31) <= value < 2**31:
        raise ValueError(f"{name}={value!r} is no whole number of 32 bits")
    return int(value)


def _record(planes: Planes) -> _library.ImageDataEx:
    height, width = planes.luma.shape
    return _library.ImageDataEx(
        width,
        height,
        planes.luma.ctypes.data,
        planes.pairs.ctypes.data,
        None,
        planes.luma.strides[0],
        planes.pairs.strides[0],
        0,
    )


def merge(
    frames: Sequence[Any],
    *,
    format: str | None = None,
    overwrite: bool = False,
    progress: Progress | None = None,
    **settings: Unpack[Settings],
) -> Result:
    """Merges a burst of 2 to 10 frames of one kind and size, 640 x 480 pixels and larger in either orientation.

    A frame is one of
      - a path of a JPEG or another file that PIL reads, or a PIL image; pixels are not turned by EXIF;
      - RGB: uint8 of shape (h, w, 3);
      - format "nv21" or "nv12": uint8 of shape (3 h / 2, w), luma above rows of VU or UV pairs, for even sides; or a
        tuple of planes of shapes (h, w) and ((h + 1) // 2, (w + 1) // 2, 2), "nv21" unless told;
      - format "i420": uint8 of shape (3 h / 2, w), or a tuple of three planes, Y, U and V.
    All are full-range BT.601.

    Frames are not changed, unless overwrite is set. Raises Error where the library refuses, Stopped where progress
    answers False, UnreadableKind for files that the tool reads and Pillow does not, ValueError and TypeError for
    frames that are none. The interpreter's lock is free meanwhile.
    """
    if not 2 <= len(frames) <= MOST_FRAMES:
        raise ValueError(f"a burst has 2 to {MOST_FRAMES} frames, not {len(frames)}")
    layout = _frames.layout_of(frames[0], format)
    width, height = _size_of(frames[0], layout)
    with Burst(
        width, height, len(frames), format=format, overwrite=overwrite, progress=progress, **settings
    ) as burst:
        return burst.merge(frames)


def _size_of(frame: Any, layout: Layout) -> tuple[int, int]:
    if layout.kind != "image":
        shape = np.shape(frame[0] if layout.split else frame)
        return (shape[1], shape[0]) if layout.split or layout.kind == "rgb" else (shape[1], shape[0] // 3 * 2)
    if hasattr(frame, "size"):
        return frame.size
    with _files.opened(frame) as image:
        return image.size


__all__ = ["Burst", "Error", "Fine", "Frame", "FrameStatus", "Progress", "Result", "Settings", "merge"]
