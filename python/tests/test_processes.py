from __future__ import annotations

import os
import signal
import subprocess
import sys
import time
from collections.abc import Sequence
from pathlib import Path

import psutil
import pytest

from bench_of_tests import run_python, wait_until
from qnrescue import processes
from qnrescue.processes import ProcessIdentity

SLEEP = [sys.executable, "-c", "import time; time.sleep(600)"]


@pytest.fixture
def sleeper():
    process = subprocess.Popen(SLEEP)
    yield process
    process.kill()
    process.wait()


def test_a_process_is_known_while_it_runs(sleeper) -> None:
    identity = processes.identify(sleeper.pid)
    assert identity is not None and identity.pid == sleeper.pid
    assert processes.is_running(identity)
    processes.kill(identity)
    wait_until(lambda: not processes.is_running(identity))  # a zombie now
    assert processes.identify(sleeper.pid) is None
    assert sleeper.wait() == -signal.SIGKILL


def test_a_process_with_a_used_id_is_another_one(sleeper) -> None:
    stranger = ProcessIdentity(sleeper.pid, "another time")
    assert not processes.is_running(stranger)
    processes.kill(stranger)
    time.sleep(0.1)
    assert sleeper.poll() is None


def test_there_is_no_such_process() -> None:
    process = subprocess.Popen([sys.executable, "-c", ""])
    process.wait()
    assert processes.identify(process.pid) is None
    processes.kill(ProcessIdentity(process.pid, ""))


@pytest.mark.skipif(sys.platform != "linux", reason="/proc")
def test_the_identity_does_not_depend_on_the_clock(sleeper, monkeypatch) -> None:
    first = processes.identify(sleeper.pid)
    monkeypatch.setattr(time, "time", lambda: 0.0)
    monkeypatch.setattr(psutil, "boot_time", lambda: 0.0)
    assert processes.identify(sleeper.pid) == first


DETACH = """
import sys
from pathlib import Path
from qnrescue import processes
with Path("out").open("wb") as output:
    child = ("import os; print(os.getpid(), os.getsid(0), os.getpgid(0), os.getcwd());"
             "print(os.read(0, 1))")
    processes.start_detached([sys.executable, "-c", child], Path.cwd(), output, output).wait()
"""


@pytest.mark.skipif(os.name != "posix", reason="sessions")
def test_a_detached_process_is_in_a_session_of_its_own_and_reads_nothing(tmp_path: Path) -> None:
    program = run_python(DETACH, cwd=tmp_path, stdin=subprocess.PIPE)
    program.communicate(b"what somebody types", timeout=60)
    process, session, group, rest = (tmp_path / "out").read_text().split(maxsplit=3)
    assert process == session == group != str(program.pid)
    assert rest == f"{tmp_path}\nb''\n"


class FakePopen:
    """Records how processes are started, as Windows would see it."""

    def __init__(self, refuses: bool) -> None:
        self.refuses = refuses
        self.flags: list[int] = []

    def __call__(self, words, creationflags, **how):
        self.flags.append(creationflags)
        assert "start_new_session" not in how
        if self.refuses and creationflags & processes.CREATE_BREAKAWAY_FROM_JOB:
            raise PermissionError(13, "Access is denied")
        return words


# The values that Windows defines.
NEW_GROUP, NO_WINDOW, BREAKAWAY = 0x200, 0x8000000, 0x1000000


@pytest.mark.parametrize("refuses, flags", [
    (False, [NEW_GROUP | NO_WINDOW | BREAKAWAY]),
    (True, [NEW_GROUP | NO_WINDOW | BREAKAWAY, NEW_GROUP | NO_WINDOW]),
])
def test_on_windows_a_detached_process_has_its_own_group_and_no_window(
        refuses, flags, tmp_path, monkeypatch) -> None:
    popen = FakePopen(refuses)
    monkeypatch.setattr(processes.sys, "platform", "win32")
    monkeypatch.setattr(processes.subprocess, "Popen", popen)
    assert processes.start_detached(["tool"], tmp_path, -1, -1) == ["tool"]
    assert popen.flags == flags


def test_other_faults_of_windows_are_not_hidden(tmp_path, monkeypatch) -> None:
    def refuse(*_, **how):
        raise PermissionError(13, "Access is denied")

    monkeypatch.setattr(processes.sys, "platform", "win32")
    monkeypatch.setattr(processes.subprocess, "Popen", refuse)
    with pytest.raises(PermissionError):
        processes.start_detached(["tool"], tmp_path, -1, -1)


def test_a_program_that_is_not_there(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError):
        processes.start_detached([str(tmp_path / "missing")], tmp_path, -3, -3)


def test_processes_are_found_by_their_words(tmp_path: Path) -> None:
    mark = str(tmp_path / "a log, ä.txt")
    child = "import subprocess, sys; subprocess.run([sys.executable, '-c'," \
            " 'import time; time.sleep(600)', *sys.argv[1:]])"
    parent = run_python(child, "--amr-logfile", mark)

    def marked(words: Sequence[str]) -> bool:
        return processes.value_after(words, "--amr-logfile") == mark

    try:
        wait_until(lambda: psutil.Process(parent.pid).children())
        found = processes.find(marked)
        assert [identity.pid for identity in found] == [parent.pid]
        assert [words[-2:] for words in found.values()] == [["--amr-logfile", mark]]
        (descendant,) = psutil.Process(parent.pid).children()
        parent.kill()
        parent.wait()
        wait_until(lambda: [each.pid for each in processes.find(marked)] == [descendant.pid])
        descendant.kill()
        wait_until(lambda: not processes.find(marked))
    finally:
        parent.kill()
        parent.wait()


def test_value_after() -> None:
    assert processes.value_after(["a", "-x", "1"], "-x") == "1"
    assert processes.value_after(["a", "-x"], "-x") is None
    assert processes.value_after(["a"], "-x") is None
