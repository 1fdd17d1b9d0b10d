"""One burst of files to one still and its report: what a worker does."""

import json
import os
import re
import uuid
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

import numpy as np

from . import _frames
from ._burst import MOST_FRAMES, Burst, FrameStatus, Result, chosen_settings
from ._frames import Layout, Planes
from ._library import library_version

_WORDS = {
    FrameStatus.MERGED: "merged",
    FrameStatus.BAD_MOTION: "not tracked or too little overlap",
    FrameStatus.BLURRED: "too blurred",
    FrameStatus.GHOST: "too different",
    FrameStatus.NOT_USED: "not used",
}


@dataclass(frozen=True)
class Job:
    paths: list[str]
    names: list[str]  # of the still, by the photo that becomes the base
    folder: str
    ending: str = "jpg"
    quality: int = 95
    settings: dict[str, Any] = field(default_factory=dict)
    side_by_side: int = 0  # workers that share this machine; 0: not known

    def still(self, name: str) -> Path:
        return Path(self.folder) / f"{name}.{self.ending}"

    def existing(self) -> Path | None:
        return next((still for still in map(self.still, self.names) if still.exists()), None)

    @property
    def range(self) -> str:
        return f"{os.path.basename(self.paths[0])} .. {os.path.basename(self.paths[-1])}"

    def clear(self) -> None:
        """Of what workers left that died as they wrote."""
        for name in self.names:
            for left in Path(self.folder).iterdir():
                if re.fullmatch(rf"\.{re.escape(name)}\.(\w+)\.[0-9a-f]{{32}}\.part", left.name):
                    left.unlink(missing_ok=True)


@dataclass(frozen=True)
class Outcome:
    text: str
    still: str | None  # None: it failed, and the text says why


def sharpness(luma: np.ndarray) -> float:
    """Mean of gx^2 + gy^2, central differences on the picture shrunk to half by boxes (Tenenbaum's measure)."""
    h, w = (n // 2 for n in luma.shape)
    if h < 3 or w < 3:
        return 0.0
    wide = luma[: 2 * h, : 2 * w].astype(np.int32)
    low = wide[0::2, 0::2] + wide[0::2, 1::2] + wide[1::2, 0::2] + wide[1::2, 1::2]
    gx = low[1:-1, 2:] - low[1:-1, :-2]
    gy = low[2:, 1:-1] - low[:-2, 1:-1]
    return int(np.sum(gx * gx + gy * gy, dtype=np.int64)) / 16 / ((h - 2) * (w - 2))


def choose_sharpest(luma_of: Callable[[int], np.ndarray], count: int) -> tuple[list[int], list[float] | None]:
    """The sharpest 10 in their order, of equal ones the earlier; and what each of all measured, where it was asked."""
    if count <= MOST_FRAMES:
        return list(range(count)), None
    measures = [sharpness(luma_of(i)) for i in range(count)]
    return sorted(sorted(range(count), key=lambda i: -measures[i])[:MOST_FRAMES]), measures


def _read(path: str) -> Planes:
    try:
        return _frames.to_planes(path, Layout("image"))
    except (OSError, SyntaxError, ValueError) as error:
        raise ValueError(str(error) if path in str(error) else f"{path}: {error}") from error


def _share_of_processors(side_by_side: int, slot: int | None) -> dict[str, int]:
    """Each worker of a machine has processors of its own, on which alone its threads are pinned."""
    if side_by_side < 2 or slot is None:
        return {}
    processors = sorted(os.sched_getaffinity(0) & set(range(32)))  # the mask names no others
    share = max(len(processors) // side_by_side, 1)
    own = [processors[(slot * share + i) % len(processors)] for i in range(share)]
    return {"threads": share, "processor_mask": sum(1 << processor for processor in own)}


def _write(path: Path, data: bytes) -> None:
    """At once, or not at all."""
    part = path.with_name(f".{path.name}.{uuid.uuid4().hex}.part")
    try:
        with open(part, "xb") as file:
            file.write(data)
        os.replace(part, path)
    finally:
        part.unlink(missing_ok=True)


def _report(job: Job, still: Path, settings: dict, taken: list[int], measures: list[float] | None, result: Result):
    frames: list[dict[str, Any]] = [
        {"file": path, "index": i, "status": "not among the sharpest"} for i, path in enumerate(job.paths)
    ]
    for i, frame, motion in zip(taken, result.frames, result.motions):
        frames[i] |= {
            "status": _WORDS[frame.status],
            "score": frame.score,
            "order": frame.order,
            "trackFailure": frame.track_failure,
            "motion": motion.tolist(),
        }
        if result.fine is not None:
            frames[i] |= {"residual": frame.residual, "cornerSigma": frame.corner_sigma, "share": frame.share}
    for frame, measure in zip(frames, measures or ()):
        frame["sharpness"] = measure
    width, height = result.planes.size
    report = {
        "library": library_version(),
        "output": str(still),
        "width": width,
        "height": height,
        "settings": {
            name.replace("_", "-"): int(value) if isinstance(value, bool) else value
            for name, value in settings.items()
        },
        "seconds": {"merge": result.seconds},
        "base": taken[result.base],
        "frames": frames,
    }
    if result.fine is not None:
        noise = result.fine.noise
        report["noise"] = {"luma": noise[0], "chroma": noise[1:]}
        report["chosen"] = {"lumaStrength": result.fine.luma_strength, "chromaStrength": result.fine.chroma_strength}
    return report


def make_still(job: Job, slot: int | None = None) -> Outcome:
    """Of a burst. slot: which of the workers of this machine this one is."""
    try:
        taken, measures = choose_sharpest(lambda i: _read(job.paths[i]).luma, len(job.paths))
        planes = [_read(job.paths[i]) for i in taken]
        settings = chosen_settings(job.settings)
        if not {"threads", "processor_mask"} & settings.keys():
            settings |= _share_of_processors(job.side_by_side, slot)
        with Burst(*planes[0].size, len(planes), **settings) as burst:
            result = burst.merge_planes(planes)
        base = taken[result.base]
        still = job.still(job.names[base])
        options = {"quality": job.quality} if job.ending != "png" else {}
        data = _frames.encoded(result.planes, "PNG" if job.ending == "png" else "JPEG", **options)
        report = _report(job, still, settings, taken, measures, result)
        # The still comes last: where it is, the burst is done.
        _write(still.with_name(f"{job.names[base]}.json"), (json.dumps(report, indent=2, default=list) + "\n").encode())
        _write(still, data)
    except MemoryError:
        return Outcome("the machine has no memory for it", None)
    except Exception as error:  # whatever a file brings: it costs its own burst only
        return Outcome(str(error) or type(error).__name__, None)
    merged = sum(frame.status == FrameStatus.MERGED for frame in result.frames)
    chosen = f" (the sharpest of {len(job.paths)})" if measures else ""
    return Outcome(
        f"{still.name}: {job.range}: {merged} of {len(taken)} frames{chosen} merged, base is frame {base + 1},"
        f" {result.seconds:.2f} s",
        str(still),
    )
