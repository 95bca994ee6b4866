"""Jobs when journal, disk or clock do what they should not, with a double of the tool."""

from __future__ import annotations

import sqlite3
import subprocess
import time
from collections.abc import Iterator
from dataclasses import replace
from pathlib import Path

import pytest

from bench_of_tests import TIME_LIMIT, TestBench, run_python, spoil, wait_until
from qnrescue import processes
from qnrescue.database import JournalUnavailable, broken_files
from qnrescue.jobs import JobState
from qnrescue.records import write_record
from qnrescue.run import RESERVED
from qnrescue.supervisor import ensure_supervisor
from small_disk import fill, mount, unmount

LOCK = """
import sqlite3, sys
database = sqlite3.connect(sys.argv[1], isolation_level=None)
database.execute("BEGIN EXCLUSIVE")
print("locked", flush=True)
sys.stdin.read()
"""


def test_a_journal_that_another_process_locks(bench: TestBench) -> None:
    order = bench.order("report 3 1", bench.gate(), "report 13 60", "complete")
    job = bench.desk.order(order)
    wait_until(lambda: bench.job(job.id).step == "step 3")
    holder = run_python(LOCK, str(bench.desk.journal.path), stdin=subprocess.PIPE,
                        stdout=subprocess.PIPE)
    assert holder.stdout.readline() == b"locked\n"
    bench.go()
    wait_until(lambda: not bench.tools())
    time.sleep(3)  # longer than the supervisor waits
    assert len(bench.supervisors()) == 1
    assert bench.job(job.id).state is JobState.RUNNING
    holder.communicate()
    ended = bench.end_of(job.id)
    assert (ended.state, ended.exit_status) == (JobState.SUCCEEDED, 0)


def test_a_journal_that_breaks_while_jobs_run(bench: TestBench) -> None:
    before = bench.restore("report 3 1", "complete")
    failed = bench.restore("failure")
    cancelled = bench.desk.order(bench.order("report 3 1", "wait 600"))
    wait_until(lambda: bench.job(cancelled.id).step)
    bench.desk.cancel(cancelled.id, asked_by="me")
    bench.end_of(cancelled.id)
    job = bench.desk.order(bench.order("report 3 1", bench.gate(), "complete"), asked_by="me")
    wait_until(lambda: bench.job(job.id).step)
    broken = bench.desk.journal.path
    bench.desk.close()
    spoil(broken)
    bench.go()
    wait_until(lambda: broken_files(bench.folder))
    bench.desk = type(bench.desk)(bench.folder)
    wait_until(lambda: bench.desk.journal.find(job.id))
    ended = bench.end_of(job.id)
    assert (ended.state, ended.asked_by, ended.order) == (JobState.SUCCEEDED, "me", job.order)
    known = {one.id: (one.state, one.reason) for one in bench.desk.journal.jobs()}
    assert known == {before.id: (JobState.SUCCEEDED, ""), job.id: (JobState.SUCCEEDED, ""),
                     failed.id: (JobState.FAILED, "the image is damaged"),
                     cancelled.id: (JobState.CANCELLED, "cancelled by me")}
    assert broken_files(bench.folder) == [broken]
    assert len(bench.starts()) == 4


def test_a_journal_that_breaks_while_nobody_supervises(bench: TestBench) -> None:
    runs = bench.desk.order(bench.order("report 3 1", bench.gate(), "complete"))
    dies = bench.desk.order(bench.order("report 3 1", "complete", "wait 600"))
    lost = bench.desk.order(bench.order("report 3 1", "wait 600"))
    wait_until(lambda: all(bench.job(job.id).step for job in (runs, dies, lost)))
    bench.kill_supervisors()
    for process, words in processes.find(lambda words: "--amr-logfile" in words).items():
        if {dies.device, lost.device} & set(words):
            processes.kill(process)
    broken = bench.desk.journal.path
    bench.desk.close()
    content = spoil(broken)
    bench.desk = type(bench.desk)(bench.folder)
    ensure_supervisor(bench.desk.folder)
    wait_until(lambda: len(bench.desk.journal.jobs()) == 3)
    again = bench.desk.order(bench.order("complete", device=runs.device))
    assert again.state is JobState.REFUSED
    bench.go()
    assert bench.end_of(runs.id).state is JobState.SUCCEEDED
    assert bench.job(dies.id).state is JobState.SUCCEEDED
    assert bench.job(lost.id).state is JobState.INTERRUPTED
    assert broken.read_bytes() == content
    # An id never starts twice, even if the journal does not know it.
    assert len(bench.starts()) == 3


def test_two_records_of_a_device_without_an_end(bench: TestBench) -> None:
    """The disk was full when the first job ended."""
    first = bench.restore("report 3 1", "complete")
    files = bench.desk.files(first.id)
    write_record(files, replace(first, state=JobState.RUNNING, ended_at=None))
    order = bench.order("report 3 1", bench.gate(), "complete", device=first.device)
    second = bench.desk.order(order)
    wait_until(lambda: bench.job(second.id).step)
    bench.kill_supervisors()
    broken = bench.desk.journal.path
    bench.desk.close()
    spoil(broken)
    bench.desk = type(bench.desk)(bench.folder)
    ensure_supervisor(bench.desk.folder)
    wait_until(lambda: len(bench.desk.journal.jobs()) == 2)
    bench.go()
    assert bench.end_of(second.id).state is JobState.SUCCEEDED
    assert bench.job(first.id).state is JobState.SUCCEEDED
    assert len(bench.starts()) == 2


def test_an_id_that_the_journal_has_forgotten_does_not_start(bench: TestBench) -> None:
    order = bench.order("complete")
    bench.end_of(bench.desk.order(order, job_id="order-1").id)
    bench.kill_supervisors()
    bench.desk.close()
    bench.desk.files("order-1").record.unlink()
    for path in bench.folder.glob("journal*"):
        path.unlink()
    bench.desk = type(bench.desk)(bench.folder)
    job = bench.end_of(bench.desk.order(order, job_id="order-1").id)
    assert job.state is JobState.REFUSED and job.reason.startswith("cannot start: ")
    assert len(bench.starts()) == 1


# A supervisor whose clock is set back by a day as soon as there is a file.
SET_BACK = """
import sys, time
from pathlib import Path
from qnrescue.places import bench_folder
from qnrescue.supervisor import supervise
clock = time.time
time.time = lambda: clock() - 86400 * Path(sys.argv[2]).exists()
supervise(bench_folder(sys.argv[1]), None)
"""


def test_a_clock_that_is_set_back(bench: TestBench) -> None:
    supervisor = run_python(SET_BACK, str(bench.folder), str(bench.path / "back"))
    try:
        job = bench.desk.journal.submit(
            bench.order("report 3 1", bench.gate(), "wait 1", "complete", silence_timeout=30.0),
            "me")
        wait_until(lambda: bench.job(job.id).step)
        bench.go("back")
        bench.go()
        job = bench.end_of(job.id)
        assert job.state is JobState.SUCCEEDED
        assert job.ended_at < job.ordered_at - 80000
        assert 1 <= job.seconds < TIME_LIMIT
    finally:
        supervisor.kill()
        supervisor.wait()


@pytest.fixture
def small_disk(tmp_path: Path) -> Iterator[Path]:
    """Gives a folder on a small file system."""
    path = tmp_path / "disk"
    if fault := mount(path):
        pytest.skip(fault)
    yield path
    unmount(path)


def test_a_disk_that_is_full_while_a_job_runs(small_disk: Path) -> None:
    bench = TestBench(small_disk)
    try:
        reports = [f"report {step} {step}" for step in range(10, 90)] * 10
        job = bench.desk.order(bench.order("report 3 1", bench.gate(), *reports, "complete"))
        wait_until(lambda: bench.job(job.id).step == "step 3")
        Path(bench.gate().split()[1]).touch()  # the file needs no space
        filler = fill(small_disk)
        wait_until(lambda: not bench.tools())
        filler.unlink()
        job = bench.end_of(job.id)
        assert (job.state, job.exit_status) == (JobState.SUCCEEDED, 0)
        documents = bench.desk.files(job.id).documents
        assert documents.stat().st_size < RESERVED
        assert documents.read_bytes().count(b"</plist>") == 802
        assert len(bench.supervisors()) == 1
    finally:
        bench.close()


def test_no_job_starts_on_a_full_disk(small_disk: Path) -> None:
    bench = TestBench(small_disk)
    try:
        bench.restore("complete")
        order = bench.order("complete")
        filler = fill(small_disk)
        try:
            job = bench.desk.order(order)
        except (JournalUnavailable, OSError):
            job = None
        time.sleep(2)
        assert len(bench.starts()) == 1
        filler.unlink()
        if job is not None:
            ended = bench.end_of(job.id)
            assert ended.state is JobState.REFUSED and "No space left" in ended.reason
        assert bench.restore("complete").state is JobState.SUCCEEDED
    finally:
        bench.close()


def test_an_end_that_cannot_be_written_down_is_tried_again(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", bench.gate(), "complete"))
    wait_until(lambda: bench.job(job.id).step)
    database = sqlite3.connect(bench.desk.journal.path)
    database.execute("CREATE TRIGGER refuse BEFORE UPDATE ON jobs BEGIN"
                     " SELECT RAISE(ABORT, 'not now'); END")
    database.commit()
    bench.go()
    wait_until(lambda: not bench.tools())
    time.sleep(1)
    assert bench.job(job.id).state is JobState.RUNNING
    database.execute("DROP TRIGGER refuse")
    database.commit()
    database.close()
    assert bench.end_of(job.id).state is JobState.SUCCEEDED
    assert "not now" in bench.desk.folder.supervisor_log.read_text()
