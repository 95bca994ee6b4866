from __future__ import annotations

import os
import secrets
import stat
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest

from bench_of_tests import TIME_LIMIT, TestBench, run_python, wait_until
from qnrescue import machine, processes
from qnrescue.file_lock import FileLock
from qnrescue.jobs import JobState
from qnrescue.journal import Journal
from qnrescue.machine import Machine
from qnrescue.places import BenchFolder
from qnrescue.processes import ProcessIdentity
from qnrescue.supervisor import Supervisor

ECID = "001E2D4C0A91C026"


@pytest.fixture
def folder(tmp_path: Path) -> Path:
    """Returns the folder that the environment names."""
    return tmp_path / "machine"


@pytest.fixture
def process() -> Iterator[ProcessIdentity]:
    """Gives a process that does nothing."""
    with run_python("import time; time.sleep(600)") as started:
        identity = processes.identify(started.pid)
        assert identity is not None
        yield identity
        started.kill()


def restores() -> dict[str, ProcessIdentity]:
    """Returns the devices that are being restored."""
    with Machine().starting() as found:
        assert found is not None
        return found


def test_a_device_is_restored_until_its_process_ends(folder: Path, process) -> None:
    assert restores() == {}
    Machine().note(ECID, process)
    assert restores() == {ECID: process}
    processes.kill(process)
    wait_until(lambda: not processes.is_running(process))
    assert restores() == {}
    assert [path.name for path in folder.iterdir()] == ["lock"]


def test_an_id_of_a_process_that_is_used_again(process) -> None:
    Machine().note(ECID, ProcessIdentity(process.pid, "long ago"))
    assert restores() == {}


def test_one_supervisor_starts_restores() -> None:
    with Machine().starting() as first, Machine().starting() as second:
        assert (first, second) == ({}, None)
    assert restores() == {}


def test_files_that_make_no_sense(folder: Path, process) -> None:
    Machine().note(ECID, process)
    for name in (f"{ECID}-x", "-", f"{ECID}-{process.pid}-1"):
        (folder / name).write_text("rubbish")
    (folder / f"{ECID}-2").write_bytes(b"\xff")
    (folder / f"{ECID}-3").mkdir()
    assert restores() == {ECID: process}


def test_a_folder_that_cannot_be_used(folder: Path, process) -> None:
    folder.touch()
    Machine().note(ECID, process)
    assert restores() == {}


@pytest.mark.skipif(os.name != "posix", reason="permissions of POSIX")
def test_all_users_may_use_the_folder(folder: Path, process) -> None:
    before = os.umask(0o077)
    try:
        assert restores() == {}
        Machine().note(ECID, process)
    finally:
        os.umask(before)
    modes = {path: stat.S_IMODE(path.stat().st_mode) for path in (folder, *folder.iterdir())}
    assert modes == {folder: 0o1777, folder / "lock": 0o666,
                     folder / f"{ECID}-{process.pid}": 0o644}


def test_two_benches_restore_a_device_once(bench: TestBench, tmp_path: Path) -> None:
    (tmp_path / "second").mkdir()
    second = TestBench(tmp_path / "second")
    try:
        order = bench.order("report 3 1", bench.gate(), "complete")
        job = bench.desk.order(order)
        wait_until(lambda: bench.job(job.id).step)
        refused = second.end_of(second.desk.order(order).id)
        (tool,) = bench.tools()
        assert (refused.state, refused.reason) == (
            JobState.REFUSED, f"another program restores the device: process {tool.pid}")
        bench.kill_supervisors()
        assert second.end_of(second.desk.order(order).id).state is JobState.REFUSED
        bench.go()
        assert bench.end_of(job.id).state is JobState.SUCCEEDED
        assert second.end_of(second.desk.order(order).id).state is JobState.SUCCEEDED
    finally:
        second.close()


def test_a_tool_that_was_taken_over_is_noted(bench: TestBench, folder: Path) -> None:
    """Its supervisor was killed before it noted the process."""
    job = bench.desk.order(bench.order("report 3 1", bench.gate(), "complete"))
    wait_until(lambda: bench.job(job.id).step)
    bench.kill_supervisors()
    (tool,) = bench.tools()
    (folder / f"{job.device}-{tool.pid}").unlink()
    with Journal(bench.folder) as own:
        Supervisor(BenchFolder(bench.folder), own).step()
    assert restores() == {job.device: tool}
    bench.go()
    assert bench.end_of(job.id).state is JobState.SUCCEEDED


def test_a_job_waits_while_another_supervisor_starts_restores(bench: TestBench) -> None:
    job = bench.desk.journal.submit(bench.order("complete"), "test")
    with Journal(bench.folder) as own:
        supervisor = Supervisor(BenchFolder(bench.folder), own)
        with Machine().starting():
            for _ in range(3):
                supervisor.step()
            assert bench.job(job.id).state is JobState.QUEUED
        wait_until(lambda: supervisor.step() or bench.job(job.id).state.is_end)
    assert bench.job(job.id).state is JobState.SUCCEEDED


def test_a_tool_that_somebody_started_by_hand(bench: TestBench, folder: Path,
                                              monkeypatch: pytest.MonkeyPatch) -> None:
    """It is seen where no folder is named. Other tests may run at the same time."""
    device = secrets.token_hex(8).upper()
    order = bench.order("report 3 1", bench.gate(), "complete", device=device)
    stranger = subprocess.Popen([*order.tool, "--restore", order.bundle, "--ecid",
                                 device.lower()], stdout=subprocess.DEVNULL)
    with FileLock(bench.desk.folder.supervisor_lock) as lock, Journal(bench.folder) as own:
        assert lock.acquire()
        wait_until(bench.starts)
        assert device not in restores()
        monkeypatch.delenv(machine.FOLDER_VARIABLE)
        monkeypatch.setattr(machine, "_folder_of_machine", lambda: folder)
        supervisor = Supervisor(BenchFolder(bench.folder), own)
        job = bench.desk.journal.submit(order, "me")
        supervisor.step()
        refused = bench.job(job.id)
        assert (refused.state, refused.reason) == (
            JobState.REFUSED,
            f"another program restores the device: process {stranger.pid}")
        bench.go()
        stranger.wait(TIME_LIMIT)
        again = bench.desk.journal.submit(order, "me")
        wait_until(lambda: supervisor.step() or bench.job(again.id).state.is_end)
        assert bench.job(again.id).state is JobState.SUCCEEDED
