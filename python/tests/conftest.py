"""Bursts made by the command-line tool, whose truth is known, and the tool as the yardstick of every result."""

import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import pytest


@pytest.fixture(scope="session")
def tool():
    def run(*arguments) -> str:
        command = [os.environ["TESSALINE4_TOOL"], *map(str, arguments)]
        return subprocess.run(command, check=True, capture_output=True, text=True).stdout

    return run


@dataclass
class Raw:
    """NV21 frames of the built-in scene, as arrays and as files."""

    width: int
    height: int
    paths: list[Path]

    @property
    def frames(self) -> list[np.ndarray]:
        return [np.fromfile(p, np.uint8).reshape(self.height * 3 // 2, self.width) for p in self.paths]


@pytest.fixture(scope="session")
def raw(tool, tmp_path_factory) -> Raw:
    folder = tmp_path_factory.mktemp("raw")
    tool("simulate", "--built-in", "-o", folder, "--size", "640x480", "--frames", 4, "--seed", 7,
         "--frame-format", "nv21")  # fmt: skip
    return Raw(640, 480, sorted(folder.glob("frame*.nv21")))


@pytest.fixture(scope="session")
def merged_by_tool(tool, raw, tmp_path_factory):
    """The tool's result of the first frames of raw, as an array like a frame."""

    def merge(*options, count=4) -> np.ndarray:
        out = tmp_path_factory.mktemp("tool") / "out.nv21"
        tool("merge", *raw.paths[:count], "-o", out, "--size", "640x480", "--format", "nv21", *options)
        return np.fromfile(out, np.uint8).reshape(raw.height * 3 // 2, raw.width)

    return merge
