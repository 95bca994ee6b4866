"""The installed package: what is in it, and that the other tests use it, not the source."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
from importlib.metadata import distribution
from pathlib import Path

import qnrescue

SOURCE = Path(__file__).resolve().parents[2]


def test_the_installed_package_is_tested() -> None:
    module = Path(qnrescue.__file__)
    assert module.parent.parent.name == "site-packages"
    assert not module.is_relative_to(SOURCE / "python")


def test_has_the_version_of_the_project() -> None:
    text = (SOURCE / "CMakeLists.txt").read_text(encoding="utf-8")
    version = re.search(r"project\(QNRescue VERSION ([\d.]+)", text)
    assert version
    assert distribution("qnrescue").version == version[1]


def test_has_every_file_of_the_source() -> None:
    source = SOURCE / "python"
    installed = {str(path) for path in distribution("qnrescue").files or ()}
    files = {str(path.relative_to(source)) for path in (source / "qnrescue").rglob("*")
             if path.is_file() and "__pycache__" not in path.parts}
    assert "qnrescue/py.typed" in files
    assert files <= installed


def test_the_wheel_is_the_same_when_it_is_built_again(tmp_path: Path) -> None:
    environment = {**os.environ, "SOURCE_DATE_EPOCH": "1700000000"}
    wheels: list[bytes] = []
    for place in (tmp_path / "first", tmp_path / "a folder" / "of another depth"):
        shutil.copytree(SOURCE / "python", place / "python",
                        ignore=shutil.ignore_patterns("__pycache__"))
        shutil.copy(SOURCE / "CMakeLists.txt", place)
        for path in place.rglob("*"):
            os.utime(path, (1e9, 1e9 + 1000 * len(wheels)))
        subprocess.run([sys.executable, "-B", "-m", "hatchling", "build", "--target", "wheel",
                        "--directory", place / "wheel"], cwd=place / "python", env=environment,
                       check=True, stdout=subprocess.DEVNULL)
        (wheel,) = (place / "wheel").iterdir()
        wheels.append(wheel.read_bytes())
    assert wheels[0] == wheels[1]
