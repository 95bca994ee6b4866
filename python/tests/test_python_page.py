"""docs/python.md: its samples are run, with a double of the tool, and its table has all states."""

from __future__ import annotations

import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

import plists
import pytest
from bench_of_tests import FAKE_TOOL

from qnrescue.jobs import JobState

PAGE = (Path(__file__).resolve().parents[2] / "docs" / "python.md").read_text("utf-8")
SAMPLES = re.findall(r"^```python\n(.*?)^```$", PAGE, re.MULTILINE | re.DOTALL)

pytestmark = pytest.mark.skipif(sys.platform == "win32", reason="the double is started by sh")


def run(sample: int, folder: Path) -> list[str]:
    """Returns the lines that the sample prints in this folder."""
    (folder / "update.ipsw").write_text("report 3 10\nwait 0.3\nreport 13 60\nwait 0.3\ncomplete\n")
    tool = folder / "qnrescue"
    tool.write_text(f'#!/bin/sh\nexec {shlex.join(FAKE_TOOL)} "$@"\n')
    tool.chmod(0o755)
    environment = {**os.environ, "PATH": f"{folder}{os.pathsep}{os.environ['PATH']}",
                   "QNRESCUE_BENCH_FOLDER": str(folder / "bench")}
    ended = subprocess.run([sys.executable, "-c", SAMPLES[sample]], cwd=folder,
                           env=environment, capture_output=True, text=True, timeout=60)
    assert (ended.returncode, ended.stderr) == (0, "")
    return ended.stdout.splitlines()


def test_job(tmp_path: Path) -> None:
    *progress, path = run(0, tmp_path)
    assert progress[-1] == "100 Successful"
    assert "60 step 13" in progress
    assert Path(path).read_bytes().endswith(b"</plist>\n\n")


def test_tool(tmp_path: Path) -> None:
    lines = run(1, tmp_path)
    assert lines[0].startswith("DeviceInfo(ecid=")
    assert lines[-4:] == ["10 step 3", "60 step 13", "100 Successful", "succeeded "]


def test_asyncio(tmp_path: Path) -> None:
    assert run(2, tmp_path) == [f"{plists.ECID} succeeded ", "000A35D83C60802E succeeded "]


def test_documents(tmp_path: Path) -> None:
    (tmp_path / "documents.plist").write_bytes(plists.step(13, 60, "step") + plists.FAILURE)
    *_, end = run(3, tmp_path)
    assert end.startswith("failed ")


def test_all_samples_are_run() -> None:
    assert len(SAMPLES) == 4


def test_states() -> None:
    words = re.findall(r"^\| `([a-z ]+)` \|", PAGE, re.MULTILINE)
    assert words == [state.value for state in JobState]
