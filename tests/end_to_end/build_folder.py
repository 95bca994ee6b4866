"""The build that is tested: its folders, and the tools that made it."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from harness import BIN

BUILD = BIN.parent

# Compilers do their own work here: what a cache has kept would prove nothing.
ENVIRONMENT = {**os.environ, "CCACHE_DISABLE": "1"}
# Far above what any of these needs.
TIME_LIMIT = 300


def _read_cache():
    lines = (BUILD / "CMakeCache.txt").read_text().splitlines()
    entries = (line.partition("=") for line in lines if "=" in line and line[0] not in "#/")
    return {name.partition(":")[0]: value for name, _, value in entries}


CACHE = _read_cache()
SOURCE = pathlib.Path(CACHE["CMAKE_HOME_DIRECTORY"])
CMAKE = CACHE["CMAKE_COMMAND"]
CPACK = CACHE["CMAKE_CPACK_COMMAND"]
COMPILER = CACHE["QNRESCUE_CXX_COMPILER"]


def same_setting(*names):
    """The arguments that give another CMake project these settings of the build."""
    return [f"-D{name}={CACHE[name]}" for name in names if CACHE.get(name)]


def run(*command, **environment):
    """Runs a build tool to its end; what it says comes with its failure."""
    done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=TIME_LIMIT,
                          env={**ENVIRONMENT, **environment})
    if done.returncode != 0:
        raise AssertionError(f"{command}: status {done.returncode}\n{done.stdout}")
    return done.stdout


def module_folder():
    """A folder that is removed after the tests of the module; setUpModule calls this."""
    folder = tempfile.TemporaryDirectory(prefix="end_to_end.")
    unittest.addModuleCleanup(folder.cleanup)
    return pathlib.Path(folder.name)


def pack(folder, **environment):
    """The path of the ZIP, which is made in this folder."""
    run(CPACK, "--config", BUILD / "CPackConfig.cmake", "-B", folder, **environment)
    (package,) = folder.glob("*.zip")
    return package


def make_release(package, folder, **environment):
    """Makes in this folder what is published beside the ZIP."""
    run(sys.executable, "-B", SOURCE / "packaging/release.py", package,
        BUILD / "linked_libraries.json", folder, **environment)
