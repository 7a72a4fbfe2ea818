"""The build step of the Python package (pyproject.toml): the extension
_core is built by the project's own CMake build, then the module and the
shared library it links are put into the package, the module finding the
library beside itself ($ORIGIN), so the installed package works on its own.

Environment:
  CMAKE_ARGS                     more arguments for the CMake configure step
  CMAKE_BUILD_PARALLEL_LEVEL     build jobs (default: every processor)
  STATISTICSANALYST_CMAKE_BUILD  an already configured build tree to build
                                 _core in, instead of a new one (faster
                                 rebuilds; its CMAKE_BUILD_TYPE is kept)
"""
import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

SOURCE = Path(__file__).resolve().parent


def project_version():
    text = (SOURCE / "CMakeLists.txt").read_text()
    return re.search(r"project\(StatisticsAnalyst VERSION ([0-9.]+)", text).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        given = os.environ.get("STATISTICSANALYST_CMAKE_BUILD")
        build = Path(given) if given else Path(self.build_temp).resolve() / "cmake"
        if not given:
            build.mkdir(parents=True, exist_ok=True)
            # The project's tested optimization (-O2); the install strips the
            # debugging information.
            self.spawn(["cmake", "-S", str(SOURCE), "-B", str(build), "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                        f"-DPython_EXECUTABLE={sys.executable}", "-DSA_PYTHON=ON", "-DSA_BUILD_TESTS=OFF",
                        *shlex.split(os.environ.get("CMAKE_ARGS", ""))])
        jobs = [] if "CMAKE_BUILD_PARALLEL_LEVEL" in os.environ else ["--parallel", str(os.cpu_count() or 1)]
        self.spawn(["cmake", "--build", str(build), "--target", "_core", *jobs])
        staging = Path(self.build_temp).resolve() / "staging"
        shutil.rmtree(staging, ignore_errors=True)
        self.spawn(["cmake", "--install", str(build), "--component", "python_wheel", "--prefix", str(staging),
                    "--strip"])
        # The library comes as its file and the soname link to it; the wheel
        # keeps one copy under the soname, the name the module asks for.
        installed = list((staging / "statisticsanalyst").iterdir())
        linked = {path.resolve() for path in installed if path.is_symlink()}
        package = Path(self.get_ext_fullpath(ext.name)).parent
        package.mkdir(parents=True, exist_ok=True)
        for path in installed:
            if path.is_symlink() or path.resolve() not in linked:
                shutil.copyfile(path, package / path.name)
                shutil.copymode(path, package / path.name)


setup(version=project_version(), ext_modules=[Extension("statisticsanalyst._core", sources=[])],
      cmdclass={"build_ext": CMakeBuild}, zip_safe=False)
