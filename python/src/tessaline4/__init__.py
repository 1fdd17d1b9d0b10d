"""Merges a burst of 2 to 10 hand-held photos into one sharper and less noisy still.

    import tessaline4

    result = tessaline4.merge(["IMG_1.jpg", "IMG_2.jpg", "IMG_3.jpg"])
    result.save("merged.jpg")

Frames are paths, PIL images or numpy arrays: see merge. Burst keeps its memory and its threads for many bursts.
"""

from ._burst import Burst, Frame, FrameStatus, Progress, Result, Settings, merge
from ._files import UnreadableKind
from ._library import Error, Stopped, library_version

__version__ = "4.3.0"
__all__ = [
    "Burst",
    "Error",
    "Frame",
    "FrameStatus",
    "Progress",
    "Result",
    "Settings",
    "Stopped",
    "UnreadableKind",
    "library_version",
    "merge",
]
