"""Frames of all kinds to semi-planar 4:2:0 and back.

Y is full-range BT.601, as in JFIF. Chroma of pictures that come without 4:2:0 is the mean of 2x2 pixels; of an odd
size the last row or column counts twice.
"""

import io
import os
from dataclasses import dataclass, field
from typing import Any

import numpy as np

from . import _files

FORMATS = ("nv21", "nv12", "i420", "rgb")


@dataclass
class Planes:
    """luma: (h, w) uint8; pairs: ((h + 1) // 2, (w + 1) // 2, 2) uint8, V and U, or U and V where uv is set."""

    luma: np.ndarray
    pairs: np.ndarray
    uv: bool = False
    own: bool = False  # nobody else holds the memory
    info: dict[str, Any] = field(default_factory=dict)  # exif and icc_profile, of a file or PIL image

    @property
    def size(self) -> tuple[int, int]:
        return self.luma.shape[1], self.luma.shape[0]


@dataclass(frozen=True)
class Layout:
    """How a frame came, and its result goes."""

    kind: str  # of FORMATS, or "image"
    split: bool = False  # a tuple of planes


def _is_path(frame: Any) -> bool:
    return isinstance(frame, (str, os.PathLike))


def _is_image(frame: Any) -> bool:
    return hasattr(frame, "getdata") and hasattr(frame, "mode")


def _bytes_of(array: Any, what: str) -> np.ndarray:
    array = np.asarray(array)
    if array.dtype != np.uint8:
        raise TypeError(f"{what} must be of uint8, not {array.dtype}")
    return array


def layout_of(frame: Any, format: str | None) -> Layout:
    if format is not None and format not in FORMATS:
        raise ValueError(f"format must be one of {', '.join(FORMATS)}, not {format!r}")
    if _is_path(frame) or _is_image(frame):
        return Layout("image")
    if isinstance(frame, (tuple, list)):
        kind = format or ("i420" if len(frame) == 3 else "nv21")
        if kind == "rgb" or len(frame) != (3 if kind == "i420" else 2):
            raise ValueError(f"{len(frame)} planes are not a frame of format {kind}")
        return Layout(kind, split=True)
    array = _bytes_of(frame, "a frame")
    if format is None and array.ndim == 2:
        raise ValueError("an array of two dimensions needs a format: nv21, nv12 or i420")
    if (array.ndim == 3) != ((format or "rgb") == "rgb"):
        raise ValueError(f"an array of shape {array.shape} is not a frame of format {format or 'rgb'}")
    return Layout(format or "rgb")


def _halved(channels: np.ndarray) -> np.ndarray:
    """(h, w, n) to the means of 2x2, rounded, as float32."""
    h, w = channels.shape[:2]
    if h % 2 or w % 2:
        channels = np.pad(channels, ((0, h % 2), (0, w % 2), (0, 0)), mode="edge")
    sums = channels[0::2, 0::2].astype(np.uint16)
    for part in (channels[0::2, 1::2], channels[1::2, 0::2], channels[1::2, 1::2]):
        sums += part
    return sums.astype(np.float32) / 4


def _to_byte(values: np.ndarray) -> np.ndarray:
    return np.clip(values + 0.5, 0, 255).astype(np.uint8)


def from_rgb(rgb: np.ndarray) -> Planes:
    if rgb.ndim != 3 or rgb.shape[2] != 3:
        raise ValueError(f"an RGB frame has the shape (height, width, 3), not {rgb.shape}")
    weights = np.array([0.299, 0.587, 0.114], np.float32)
    luma = np.empty(rgb.shape[:2], np.uint8)
    for top in range(0, len(rgb), 256):  # floats of a few rows at a time
        luma[top : top + 256] = _to_byte(rgb[top : top + 256] @ weights)
    half = _halved(rgb)
    y = half @ weights
    v = (half[..., 0] - y) * np.float32(0.5 / 0.701) + 128
    u = (half[..., 2] - y) * np.float32(0.5 / 0.886) + 128
    return Planes(luma, _to_byte(np.stack([v, u], axis=-1)), own=True)


def _doubled(chroma: np.ndarray, h: int, w: int) -> np.ndarray:
    """Linear between the middles of 2x2 pixels, to (h, w, 2) as float32."""
    for axis, length in ((0, h), (1, w)):
        c = np.moveaxis(chroma, axis, 0).astype(np.float32)
        before = np.concatenate([c[:1], c[:-1]])
        after = np.concatenate([c[1:], c[-1:]])
        both = np.stack([0.75 * c + 0.25 * before, 0.75 * c + 0.25 * after], axis=1)
        chroma = np.moveaxis(both.reshape(-1, *c.shape[1:])[:length], 0, axis)
    return chroma


def to_rgb(planes: Planes) -> np.ndarray:
    h, w = planes.luma.shape
    pairs = _doubled(planes.pairs, h, w) - 128
    v, u = (pairs[..., 1], pairs[..., 0]) if planes.uv else (pairs[..., 0], pairs[..., 1])
    y = planes.luma.astype(np.float32)
    channels = (y + 1.402 * v, y - (0.114 * 1.772 * u + 0.299 * 1.402 * v) / 0.587, y + 1.772 * u)
    return np.stack([_to_byte(c) for c in channels], axis=-1)


def _from_image(image: Any) -> Planes:
    info = {key: image.info[key] for key in ("exif", "icc_profile") if image.info.get(key)}
    grey = _files.grey_of_16_bits(image)
    if grey is not None:
        planes = from_rgb(np.repeat(grey[..., None], 3, axis=2))
    elif image.mode in ("I", "F"):
        raise ValueError(f"pictures of mode {image.mode} tell no range of their samples")
    elif image.mode == "YCbCr":
        ycc = np.asarray(image)
        pairs = _to_byte(_halved(ycc[..., :0:-1]))
        planes = Planes(np.ascontiguousarray(ycc[..., 0]), pairs, own=True)
    else:
        planes = from_rgb(np.asarray(image.convert("RGB")))
    planes.info = info
    return planes


def _from_packed(array: np.ndarray, kind: str) -> tuple[np.ndarray, ...]:
    """Planes of an array of shape (3 h / 2, w)."""
    rows, w = array.shape
    if rows % 3 or w % 2 or (rows // 3 * 2) % 2:
        raise ValueError(f"an array of shape {array.shape} holds no 4:2:0 frame of even sides; give planes instead")
    h = rows // 3 * 2
    luma, rest = array[:h], array[h:]
    if kind != "i420":
        return luma, rest.reshape(h // 2, w // 2, 2)
    u, v = rest.reshape(2, h // 2, w // 2)
    return luma, u, v


def to_planes(frame: Any, layout: Layout) -> Planes:
    """Shares the memory of NV21 and NV12 arrays whose rows are whole."""
    if layout.kind == "image":
        if not _is_path(frame):
            return _from_image(frame)
        with _files.opened(frame) as image:
            if image.format == "JPEG" and image.mode == "RGB":
                image.draft("YCbCr", image.size)  # no trip through RGB
            return _from_image(image)
    if layout.kind == "rgb":
        return from_rgb(_bytes_of(frame, "a frame"))
    if layout.split:
        planes = tuple(_bytes_of(plane, "a plane") for plane in frame)
    else:
        planes = _from_packed(_bytes_of(frame, "a frame"), layout.kind)
    luma = planes[0]
    if luma.ndim != 2:
        raise ValueError(f"the luma plane has the shape (height, width), not {luma.shape}")
    h, w = luma.shape
    half = ((h + 1) // 2, (w + 1) // 2)
    for plane in planes[1:]:
        wanted = half if layout.kind == "i420" else half + (2,)
        if plane.shape != wanted:
            raise ValueError(f"a chroma plane of a frame of {w} x {h} has the shape {wanted}, not {plane.shape}")
    if layout.kind == "i420":
        return Planes(luma, np.stack([planes[2], planes[1]], axis=-1))
    return Planes(luma, planes[1], uv=layout.kind == "nv12")


def from_planes(planes: Planes, layout: Layout) -> Any:
    """The picture in the layout of the frames."""
    if layout.kind == "rgb":
        return to_rgb(planes)
    if layout.kind == "image":
        from PIL import Image

        image = Image.fromarray(to_rgb(planes))
        image.info.update(planes.info)
        return image
    h, w = planes.luma.shape
    chroma = (planes.pairs,) if layout.kind != "i420" else (planes.pairs[..., 1], planes.pairs[..., 0])
    if layout.split:
        return (planes.luma, *(np.ascontiguousarray(plane) for plane in chroma))
    return np.concatenate([planes.luma, *(plane.reshape(-1, w) for plane in chroma)])


def encoded(planes: Planes, format: str, **options: Any) -> bytes:
    """As a file that PIL can write; a JPEG gets the 4:2:0 samples as they are, EXIF and ICC of planes.info."""
    from PIL import Image

    options = planes.info | options
    if format == "JPEG":
        ycc = np.empty((*planes.luma.shape, 3), np.uint8)
        h, w = planes.luma.shape
        ycc[..., 0] = planes.luma
        pairs = planes.pairs if planes.uv else planes.pairs[..., ::-1]
        ycc[..., 1:] = pairs.repeat(2, axis=0).repeat(2, axis=1)[:h, :w]
        image = Image.fromarray(ycc, "YCbCr")
        options = {"quality": 95, "subsampling": "4:2:0"} | options
    else:
        image = Image.fromarray(to_rgb(planes))
    file = io.BytesIO()
    image.save(file, format, **options)
    return file.getvalue()
