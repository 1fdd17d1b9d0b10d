"""Puts the library that TESSALINE4_LIBRARY names into the wheel; ../scripts/python builds both. With "system" none goes
into it: it is then the same for every platform, and loads the library that the system has."""

import os
import shutil
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

library = os.environ.get("TESSALINE4_LIBRARY")


class BuildWithLibrary(build_py):
    def run(self):
        if not library:
            raise SystemExit("TESSALINE4_LIBRARY must name the shared library that goes into the wheel, or be 'system'")
        super().run()
        target = Path(self.build_lib) / "tessaline4" / "libzelvan_tessaline4.so"
        shutil.copyfile(Path(library).resolve(), target)


class PlatformWheel(bdist_wheel):
    """For one platform, but for any Python: the library is reached through ctypes."""

    def get_tag(self):
        return ("py3", "none", super().get_tag()[2])


class BinaryDistribution(Distribution):
    def has_ext_modules(self):
        return True


if library == "system":
    setup()
else:
    setup(distclass=BinaryDistribution, cmdclass={"build_py": BuildWithLibrary, "bdist_wheel": PlatformWheel})
