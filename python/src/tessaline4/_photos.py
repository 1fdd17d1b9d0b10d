"""What photos tell about themselves, and which of them make a burst.

Photos are taken in the order of their times; equal times in the order of file names, then of paths, as bytes. A new
group begins with a photo that was taken more than the gap after the one before it, of another camera (make or model)
or another size, or whose exposure time or ISO differs by more than a factor of 2. Groups of two and more are bursts.
The command-line tool's batch has the same rules.
"""

import calendar
import datetime
import os
import re
import time
from collections import Counter
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from itertools import pairwise
from math import sqrt
from pathlib import Path
from typing import Any

from . import _files

ENDINGS = (".jpg", ".jpeg", ".png", *_files.OTHER_ENDINGS)
USUAL_GAP = 2.0
_MAKE, _MODEL, _EXIF = 0x010F, 0x0110, 0x8769
_EXPOSURE, _ISO, _TIME, _SUB_SECONDS = 0x829A, 0x8827, 0x9003, 0x9291


@dataclass(frozen=True)
class Photo:
    path: str
    time: int  # microseconds, as if the camera's clock stood in Greenwich
    size: tuple[int, int]  # as stored, before any turning
    whole_seconds: bool = False  # the clock told no parts of a second
    camera: tuple[str, str] = ("", "")  # make and model
    exposure: float | None = None  # seconds
    iso: float | None = None


def _text(value: Any) -> str:
    return value.strip(" \0") if isinstance(value, str) else ""


def _positive(value: Any) -> float | None:
    try:
        number = float(value[0] if isinstance(value, tuple) else value)
    except (TypeError, ValueError, ZeroDivisionError, IndexError):
        return None
    return number if 0 < number < float("inf") else None


def _exif_time(text: str, sub_seconds: str) -> int | None:
    found = re.match(r"\s*(\d{1,4}):\s*(\d{1,2}):\s*(\d{1,2})\s*(\d{1,2}):\s*(\d{1,2}):\s*(\d{1,2})", text)
    if not found:
        return None
    year, month, day, hour, minute, second = map(int, found.groups())
    if not (year >= 1 and 1 <= month <= 12 and 1 <= day <= 31 and hour <= 23 and minute <= 59 and second <= 60):
        return None
    days = datetime.date(year, month, 1).toordinal() - datetime.date(1970, 1, 1).toordinal() + day - 1
    part = re.match(r"\d*", sub_seconds).group()[:6]
    return (((days * 24 + hour) * 60 + minute) * 60 + second) * 1_000_000 + int(part.ljust(6, "0"))


def _file_time(path: str) -> int:
    """Of the last change, in local time."""
    seconds, rest = divmod(os.stat(path).st_mtime_ns, 1_000_000_000)
    return calendar.timegm(time.localtime(seconds)) * 1_000_000 + rest // 1000


def read_photo(path: str) -> Photo:
    """From the head of the file. Raises OSError where it is no picture, UnreadableKind where only the tool reads it."""
    with _files.opened(path) as image:
        size = image.size
        try:
            exif = image.getexif()
            own = exif.get_ifd(_EXIF)
        except Exception:  # damaged EXIF is none
            exif, own = {}, {}
    sub_seconds = _text(own.get(_SUB_SECONDS))
    taken = _exif_time(_text(own.get(_TIME)), sub_seconds)
    return Photo(
        path,
        _file_time(path) if taken is None else taken,
        size,
        taken is not None and not sub_seconds[:1].isdigit(),
        (_text(exif.get(_MAKE)), _text(exif.get(_MODEL))),
        _positive(own.get(_EXPOSURE)),
        _positive(own.get(_ISO)),
    )


def find_photos(folders: Sequence[str]) -> list[str]:
    """Pictures right in the folders, by their endings; hidden files are none, nor are raw files beside a
    picture of the same name. Each folder counts once."""
    paths, seen = [], set()
    for folder in folders:
        info = os.stat(folder)
        if (info.st_dev, info.st_ino) in seen:
            continue
        seen.add((info.st_dev, info.st_ino))
        for entry in os.scandir(folder):
            if not entry.name.startswith(".") and entry.is_file() and entry.name.lower().endswith(ENDINGS):
                paths.append(entry.path)
    stem = lambda path: os.path.splitext(path)[0]  # noqa: E731
    is_raw = lambda path: path.lower().endswith(_files.RAW_ENDINGS)  # noqa: E731
    developed = {stem(path) for path in paths if not is_raw(path)}
    return sorted((path for path in paths if not is_raw(path) or stem(path) not in developed), key=os.fsencode)


def in_order(photos: Sequence[Photo]) -> list[Photo]:
    return sorted(photos, key=lambda p: (p.time, os.fsencode(os.path.basename(p.path)), os.fsencode(p.path)))


def find_gap(photos: Sequence[Photo]) -> float:
    """Seconds, from photos in order.

    The differences of time between neighbours are limited to 0.05 s and 10 s (to 1 s and 10 s when any photo tells
    whole seconds only) and sorted. Of the neighbours a < b among them with b >= 1 s and b >= 3 a, those with the
    largest b / a count, the last of equal ones: gap = sqrt(a b). Without any: 2 s.
    """
    shortest = 1.0 if any(photo.whole_seconds for photo in photos) else 0.05
    gaps = sorted(min(max((b.time - a.time) * 1e-6, shortest), 10.0) for a, b in pairwise(photos))
    jumps = [(b / a, i, sqrt(a * b)) for i, (a, b) in enumerate(pairwise(gaps)) if b >= 1.0 and b / a >= 3.0]
    return max(jumps)[2] if jumps else USUAL_GAP


def _differ(a: float | None, b: float | None) -> bool:
    return a is not None and b is not None and max(a, b) > 2 * min(a, b)


def _starts_group(last: Photo, next: Photo, gap: float) -> bool:
    return (
        (next.time - last.time) * 1e-6 > gap
        or last.camera != next.camera
        or last.size != next.size
        or _differ(last.exposure, next.exposure)
        or _differ(last.iso, next.iso)
    )


def group_photos(
    photos: Sequence[Photo], gap: float | None = None, count: int | None = None
) -> tuple[list[list[Photo]], list[Photo], float]:
    """Bursts, singles and the gap. count: runs of so many photos instead of the rules."""
    photos = in_order(photos)
    gap = find_gap(photos) if gap is None else gap
    groups: list[list[Photo]] = []
    for photo in photos:
        if groups and (len(groups[-1]) < count if count else not _starts_group(groups[-1][-1], photo, gap)):
            groups[-1].append(photo)
        else:
            groups.append([photo])
    return [g for g in groups if len(g) > 1], [g[0] for g in groups if len(g) == 1], gap


def still_names(paths: Sequence[str]) -> dict[str, str]:
    """What the stills of photos are called, without an ending: "IMG_1"; where several share that, with the folder
    before it, "100TRIP-IMG_1"; where several share that too, with the ending behind it, "100TRIP-IMG_1-png"."""
    names = {path: Path(path).stem for path in paths}

    def rename_shared(rename: Callable[[str, str], str]) -> None:
        uses = Counter(names.values())
        for path, name in names.items():
            if uses[name] > 1:
                names[path] = rename(path, name)

    rename_shared(lambda path, name: f"{Path(os.path.abspath(path)).parent.name}-{name}")
    rename_shared(lambda path, name: f"{name}-{Path(path).suffix[1:].lower()}")
    name, uses = Counter(names.values()).most_common(1)[0] if names else ("", 0)
    if uses > 1:
        raise ValueError(f"{uses} photos would have the still {name!r}; take their folders one by one")
    return names
