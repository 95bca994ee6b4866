from __future__ import annotations

import argparse
import os
from pathlib import Path

import pytest

from qnrescue.bench.context import TOOL_VARIABLE, Context
from qnrescue.bench.output import Output


def words(*tool: str) -> tuple[str, ...]:
    """Returns the words that start the tool, with these given as --tool."""
    return Context(argparse.Namespace(tool=list(tool) or None), Output()).tool_words


@pytest.fixture(autouse=True)
def folder(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """Works in a folder with a program and a file."""
    monkeypatch.chdir(tmp_path)
    monkeypatch.delenv(TOOL_VARIABLE, raising=False)
    for name, mode in (("program", 0o755), ("file", 0o644)):
        Path(name).touch(mode=mode)
    return tmp_path


def test_files_are_absolute_and_other_words_as_they_are(folder: Path) -> None:
    assert words("./program", "file", "--option") == (
        str(folder / "program"), str(folder / "file"), "--option")


def test_a_program_is_searched(folder: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("PATH", str(folder), prepend=os.pathsep)
    monkeypatch.chdir("/")
    assert words("program", "file") == (str(folder / "program"), "file")
    assert words("nowhere") == ("nowhere",)


def test_the_environment_names_the_tool(folder: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    assert words() in (("qnrescue",), words("qnrescue"))
    monkeypatch.setenv(TOOL_VARIABLE, "./program\nwith blank")
    assert words() == (str(folder / "program"), "with blank")
    assert words("other") == ("other",)
