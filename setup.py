"""For pip: CMake makes the modules of the package and the libraries below them, setuptools the wheel.

The environment variable TAVO_BUILD names a build folder of CMake that has the package (TAVO_PYTHON), to take them from
that one. Otherwise they are built in build/pip.
"""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

TREE = Path(__file__).parent.resolve()
OPTIONS = {"CMAKE_BUILD_TYPE": "Release", "TAVO_PYTHON": "ON", "TAVO_TESTS": "OFF", "TAVO_BENCH": "OFF",
           "TAVO_PYTHON_EXECUTABLE": sys.executable}


class Build(build_ext):
    def run(self):
        if getattr(self, "editable_mode", False) or self.inplace:
            sys.exit("an editable installation is not possible: build with CMake, and put out/python of the build "
                     "folder on PYTHONPATH (docs/python.md)")
        folder = os.environ.get("TAVO_BUILD")
        if not folder:
            folder = str(TREE / "build" / "pip")
            cmake("-S", str(TREE), "-B", folder, "-G", "Ninja", *(f"-D{name}={value}" for name, value in OPTIONS.items()))
        cmake("--build", folder, "--target", "tavo-python")
        cmake("--install", folder, "--component", "wheel", "--strip", "--prefix", os.path.abspath(self.build_lib))
        for link in Path(self.build_lib).glob("*/*.so.*"):  # a wheel has none: the file takes the name that is loaded
            if link.is_symlink():
                link.resolve().rename(link)


def cmake(*arguments):
    try:
        subprocess.run(["cmake", *arguments], check=True)
    except FileNotFoundError:
        sys.exit("tavo-util is built with CMake, which is not there: ./setup.sh build test installs all that is needed")
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error} (what it needs: ./setup.sh build test)")


version = re.search(r"^project\(tavo-util VERSION ([0-9.]+)", (TREE / "CMakeLists.txt").read_text(), re.MULTILINE)
with tempfile.TemporaryDirectory(prefix="tavo-wheel-") as work:  # nothing of an earlier wheel gets into this one
    setup(version=version[1], ext_modules=[Extension("tavo_util._core", [])], cmdclass={"build_ext": Build},
          options={"build": {"build_base": work}, "egg_info": {"egg_base": work}})
