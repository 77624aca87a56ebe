"""Builds the taviklimiter package with the shared library inside it.

The library is the file named by TAVIKLIMITER_LIB at install time, else
build/gcc/libtaviklimiter_vendor.so of this source tree (cmake --preset gcc
&& cmake --build --preset gcc). It is copied into the package as
libtaviklimiter_vendor.so, where taviklimiter._native looks for it, so the
wheel is made for this machine's platform, not as pure Python.
"""
import os
import shutil

from setuptools import setup
from setuptools.command.build_py import build_py
from setuptools.dist import Distribution

HERE = os.path.dirname(os.path.abspath(__file__))
NAME = "libtaviklimiter_vendor.so"


def built_library():
    path = os.environ.get("TAVIKLIMITER_LIB") or os.path.join(HERE, "..", "build", "gcc", NAME)
    if not os.path.isfile(path):
        raise SystemExit(f"taviklimiter: no shared library at {path}: build it first "
                         "(cmake --preset gcc && cmake --build --preset gcc) or name it "
                         "in TAVIKLIMITER_LIB")
    return os.path.realpath(path)


class BuildWithLibrary(build_py):
    def run(self):
        super().run()
        target = os.path.join(self.build_lib, "taviklimiter", NAME)
        shutil.copyfile(built_library(), target)
        shutil.copymode(built_library(), target)


class PlatformDistribution(Distribution):
    def has_ext_modules(self):
        return True  # the package holds a native library: a platform wheel


setup(cmdclass={"build_py": BuildWithLibrary}, distclass=PlatformDistribution)
