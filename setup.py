"""Builds the extension module of the Python package with CMake."""

import pathlib
import re
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        build = pathlib.Path(self.build_temp).resolve()
        build.mkdir(parents=True, exist_ok=True)
        target = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve()
        subprocess.run(["cmake", "-S", ROOT, "-B", build, "-G", "Ninja",
                        "-DCMAKE_BUILD_TYPE=Release", "-DKELCACHE_BUILD_PYTHON=ON",
                        "-DKELCACHE_BUILD_TOOLS=OFF", "-DKELCACHE_BUILD_TESTS=OFF",
                        f"-DPython_EXECUTABLE={sys.executable}"], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "kelcache_python"], check=True)
        built = next((build / "python" / "kelcache").glob("_core.*.so"))
        target.parent.mkdir(parents=True, exist_ok=True)
        self.copy_file(str(built), str(target))


# The version's one place is the project's declaration.
VERSION = re.search(r"project\(KelCache VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())
assert VERSION is not None
setup(version=VERSION[1], ext_modules=[Extension("kelcache._core", [])],
      cmdclass={"build_ext": CMakeBuild})
