"""Which files Pillow reads without loss, and what is done about the others."""

import contextlib
import os
from collections.abc import Iterator
from typing import Any

import numpy as np

_RAW = "3fr arw cr2 cr3 crw dcr dng erf fff gpr iiq kdc mef mos mrw nef nrw orf pef raf rw2 rwl sr2 srf srw x3f"
RAW_ENDINGS = tuple(f".{ending}" for ending in _RAW.split())
OTHER_ENDINGS = (".heic", ".heif", ".avif", ".tif", ".tiff", *RAW_ENDINGS)
_BITS, _PHOTOMETRIC, _DNG_VERSION, _SENSOR = 258, 262, 50706, (32803, 34892)


class UnreadableKind(ValueError):
    """A file of a kind that Pillow reads wrongly or not at all, and the command-line tool reads."""


def _refused(path: Any, why: str) -> UnreadableKind:
    return UnreadableKind(f"{os.fspath(path)}: {why}; the command-line tool reads it: tessaline4 merge, tessaline4 batch")


def _is_deep(image: Any) -> bool:
    return any(";16" in str(tile[3]) for tile in getattr(image, "tile", ()))


@contextlib.contextmanager
def opened(path: Any) -> Iterator[Any]:
    """The image of a file, sure to hold what the file does."""
    from PIL import Image, UnidentifiedImageError

    ending = os.path.splitext(os.fspath(path))[1].lower()
    if ending in RAW_ENDINGS:
        raise _refused(path, "a camera's raw file")
    try:
        image = Image.open(path)
    except UnidentifiedImageError as error:
        with open(path, "rb") as file:
            is_coded = file.read(8)[4:] == b"ftyp"
        if not is_coded and ending not in OTHER_ENDINGS:
            raise
        raise _refused(path, "Pillow does not read it") from error
    with image:
        tags = getattr(image, "tag_v2", {})
        if _DNG_VERSION in tags or tags.get(_PHOTOMETRIC) in _SENSOR:
            raise _refused(path, "a camera's raw file")
        is_grey = image.mode.startswith("I") and tags.get(_PHOTOMETRIC) != 0
        if (_is_deep(image) or max(tags.get(_BITS, (8,))) > 8) and not is_grey:
            raise _refused(path, "Pillow cuts its 16 bits a sample")
        yield image


def grey_of_16_bits(image: Any) -> np.ndarray | None:
    """Of a picture with one sample of 16 bits: rounded to 8 bits, as the tool does. None of any other."""
    if not image.mode.startswith("I;16") and not (image.mode == "I" and _is_deep(image)):
        return None
    levels = np.asarray(image).astype(np.int64)
    return ((levels + 128) // 257).astype(np.uint8)
