"""Builds the wheel: the package, and in it the library and the sort process that it calls.

They are compiled from the project's folder around this one. Where a build is at hand, its folder in
TVSORT_BUILD saves that.
"""

import os
import shutil
import subprocess
from pathlib import Path

from setuptools import setup
from setuptools.command.build_py import build_py

try:
    from setuptools.command.bdist_wheel import bdist_wheel
except ImportError:
    from wheel.bdist_wheel import bdist_wheel

PROJECT = Path(__file__).resolve().parent.parent
VERSION = "0.1.0"


class BuildWithNative(build_py):
    def run(self):
        super().run()
        build = Path(os.environ.get("TVSORT_BUILD") or self.build_native())
        target = Path(self.build_lib) / "tvsort" / "_native"
        target.mkdir(parents=True, exist_ok=True)
        for file in (build / "tvsort", build / "libtvsort.so.0", PROJECT / "include" / "tvsort.h"):
            shutil.copy(file, target / file.name)

    def build_native(self):
        build = Path(self.get_finalized_command("build").build_temp).resolve() / "native"
        subprocess.run(["cmake", "-S", PROJECT, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                        "-DTVSORT_TESTS=OFF", "-DTVSORT_INSTALL=OFF"], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "tvsort", "tvsort_c", "--parallel"],
                       check=True)
        return build


class NativeWheel(bdist_wheel):
    """For this machine, and for every Python 3: nothing is compiled against one."""

    def finalize_options(self):
        super().finalize_options()
        self.root_is_pure = False

    def get_tag(self):
        return "py3", "none", super().get_tag()[2]


setup(
    name="tvsort",
    version=VERSION,
    description="Sorts structured arrays, files of records and data frames by the tvsort process",
    packages=["tvsort", "tvsort.cluster"],
    package_data={"tvsort": ["py.typed", "*.pyi"]},
    python_requires=">=3.9",
    install_requires=["cffi>=1.15", "numpy>=1.21"],
    extras_require={"pandas": ["pandas>=1.4"], "cluster": ["distributed>=2022.12"]},
    cmdclass={"build_py": BuildWithNative, "bdist_wheel": NativeWheel},
    zip_safe=False,
)
