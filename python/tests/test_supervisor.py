"""Jobs from order to end, with a double of the tool."""

from __future__ import annotations

import json
import os
import random
import signal
import stat
import subprocess
import sys
import time
from pathlib import Path

import pytest

from bench_of_tests import TIME_LIMIT, TestBench, run_python, wait_until
from qnrescue import processes
from qnrescue.file_lock import FileLock
from qnrescue.jobs import JobOrder, JobState
from qnrescue.journal import Journal
from qnrescue.places import BenchFolder
from qnrescue.supervisor import Supervisor, ensure_supervisor, supervise

STATE_AND_REASON = [
    (["report 3 1", "complete"], "succeeded", "", 0),
    (["report 3 1", "failure", "wait 600"], "failed", "the image is damaged", None),
    (["no-device", "exit 4"], "failed",
     "Failed to find device with ecid 001E2D4C0A91C026 after 3 seconds", 4),
    (["timeout"], "timed out", "Aborting, restore did not complete in 3 seconds", 0),
    (["report 3 1", "say something broke", "exit 70"], "failed",
     "ended with status 70: something broke", 70),
    (["rubbish", "report 3 1"], "failed", "ended with status 0", 0),
]


@pytest.mark.parametrize("actions, state, reason, status", STATE_AND_REASON)
def test_how_a_job_ends(bench: TestBench, actions, state, reason, status) -> None:
    job = bench.restore(*actions)
    assert (job.state, job.reason, job.exit_status) == (state, reason, status)
    assert job.ordered_at <= job.started_at <= job.ended_at
    assert 0 < job.seconds < TIME_LIMIT
    assert bench.starts() == [job.device]
    wait_until(lambda: not bench.tools())


def test_silence_is_a_hang(bench: TestBench) -> None:
    job = bench.restore("report 3 1", "wait 600", silence_timeout=1.0)
    assert (job.state, job.reason) == (JobState.HUNG, "no report for 1 s")
    assert (job.operation, job.step, job.progress) == (3, "step 3", 1)
    assert not bench.tools()


def test_reports_end_the_silence(bench: TestBench) -> None:
    steps = [action for step in range(5) for action in (f"report {step + 3} 1", "wait 0.5")]
    assert bench.restore(*steps, "complete", silence_timeout=2.0).state is JobState.SUCCEEDED


def test_cancel_ends_a_running_job(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", "wait 600"))
    wait_until(lambda: bench.job(job.id).step == "step 3")
    bench.desk.cancel(job.id, asked_by="the operator")
    job = bench.end_of(job.id)
    assert (job.state, job.reason) == (JobState.CANCELLED, "cancelled by the operator")
    assert not bench.tools()


def test_cancel_ends_a_job_that_waits(bench: TestBench) -> None:
    job = bench.desk.journal.submit(bench.order("complete"), "test")
    job = bench.desk.journal.cancel(job.id, "the operator")
    assert (job.state, job.reason) == (JobState.CANCELLED, "cancelled by the operator")
    ensure_supervisor(bench.desk.folder)
    assert bench.restore("complete").state is JobState.SUCCEEDED
    assert len(bench.starts()) == 1


def test_cancel_comes_too_late(bench: TestBench) -> None:
    job = bench.restore("complete")
    assert bench.desk.cancel(job.id) == job


def test_a_program_that_is_not_there(bench: TestBench) -> None:
    order = JobOrder(bench.ecid(), "bundle", tool=(str(bench.path / "missing"),))
    job = bench.end_of(bench.desk.order(order).id)
    assert job.state is JobState.REFUSED
    assert job.reason.startswith("cannot start: ") and "missing" in job.reason


def test_a_device_has_one_job(bench: TestBench) -> None:
    order = bench.order("report 3 1", bench.gate(), "complete")
    first = bench.desk.order(order)
    second = bench.desk.order(order)
    assert (second.state, second.reason) == (JobState.REFUSED,
                                             f"the device has a job already: {first.id}")
    bench.go()
    assert bench.end_of(first.id).state is JobState.SUCCEEDED
    assert bench.end_of(bench.desk.order(order).id).state is JobState.SUCCEEDED
    assert bench.starts() == [order.device] * 2


def test_an_order_that_comes_twice_starts_once(bench: TestBench) -> None:
    order = bench.order("complete")
    first = bench.desk.order(order, job_id="order-17")
    ended = bench.end_of(first.id)
    assert ended.state is JobState.SUCCEEDED
    assert bench.desk.order(order, job_id="order-17") == ended
    time.sleep(0.5)
    assert bench.starts() == [order.device]


def test_sixty_four_jobs_at_once(bench: TestBench) -> None:
    jobs = [bench.desk.order(bench.order("report 3 1", bench.gate(), "report 13 60", "complete"))
            for _ in range(64)]
    wait_until(lambda: len(bench.starts()) == 64)
    assert len(bench.desk.journal.jobs(JobState.RUNNING)) == 64
    bench.go()
    ends = [bench.end_of(job.id) for job in jobs]
    assert {job.state for job in ends} == {JobState.SUCCEEDED}
    assert sorted(bench.starts()) == sorted(job.device for job in jobs)


def test_names_beyond_ascii(tmp_path) -> None:
    path = tmp_path / "Prüfstand 試験 🔧"
    path.mkdir()
    bench = TestBench(path)
    try:
        order = bench.order("report 3 1", "complete", slot="Platz äöü")
        job = bench.end_of(bench.desk.order(order, asked_by="Jörg 太郎").id)
        assert (job.state, job.asked_by, job.order.slot) == ("succeeded", "Jörg 太郎", "Platz äöü")
        assert str(path) in bench.desk.files(job.id).log.read_text(encoding="utf-8")
    finally:
        bench.close()


def test_files_of_a_job(bench: TestBench) -> None:
    job = bench.restore("report 3 1", "say hello", "complete")
    files = bench.desk.files(job.id)
    assert files.documents.read_bytes().endswith(b"</plist>\n\n")
    assert b"\0" not in files.documents.read_bytes()
    assert files.errors.read_text() == "hello\n"
    assert f"--amr-logfile {files.log}" in files.log.read_text()


@pytest.mark.skipif(os.name != "posix", reason="permissions of POSIX")
def test_others_who_may_use_the_folder_may_supervise(tmp_path: Path) -> None:
    folder = tmp_path / "bench"
    folder.mkdir()
    folder.chmod(0o2770)
    before = os.umask(0o077)
    bench = TestBench(tmp_path)
    try:
        bench.restore("report 3 1", "complete")
    finally:
        os.umask(before)
        bench.close()
    modes = {path.name: stat.S_IMODE(path.stat().st_mode) & 0o777 for path in folder.rglob("*")}
    own = {"restore.log", "job.json", "steps.jsonl"}  # nobody else has to write these
    assert own <= modes.keys()
    assert {name for name, mode in modes.items() if mode not in (0o660, 0o770)} == own


# What happens to viewers

FOLLOW = """
import sys
from qnrescue.bench.cli import main
sys.exit(main(["follow", "--folder", sys.argv[1], sys.argv[2]]))
"""


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGKILL, signal.SIGHUP])
def test_the_end_of_a_viewer_is_not_the_end_of_the_job(bench: TestBench, number) -> None:
    job = bench.desk.journal.submit(bench.order("report 3 1", bench.gate(), "complete"), "test")
    # The viewer starts the supervisor; all of its process group gets the signal, as in a terminal.
    viewer = run_python(FOLLOW, str(bench.folder), job.id, stdout=subprocess.PIPE,
                        stderr=subprocess.DEVNULL, start_new_session=True)
    wait_until(lambda: bench.job(job.id).step)
    os.killpg(viewer.pid, number)
    viewer.communicate(timeout=TIME_LIMIT)
    bench.go()
    assert bench.end_of(job.id).state is JobState.SUCCEEDED


def test_a_viewer_without_a_reader_is_not_the_end_of_the_job(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", bench.gate(), "complete"))
    with open("/dev/full", "wb") as full:
        viewer = run_python(FOLLOW, str(bench.folder), job.id, stdout=full,
                            stderr=subprocess.DEVNULL)
        assert viewer.wait(TIME_LIMIT) != 0
    bench.go()
    assert bench.end_of(job.id).state is JobState.SUCCEEDED


# What happens to supervisors

def test_a_killed_supervisor_is_replaced(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", bench.gate(), "report 13 60", "complete"))
    wait_until(lambda: bench.job(job.id).step)
    bench.kill_supervisors()
    assert len(bench.tools()) == 1
    bench.go()
    ended = bench.end_of(job.id)  # whoever waits starts another supervisor
    assert (ended.state, ended.exit_status, ended.step) == (JobState.SUCCEEDED, None, "Successful")
    assert ended.seconds > 0
    assert bench.starts() == [job.device]


@pytest.mark.parametrize("actions, state, reason", [
    (["complete"], "succeeded", ""),
    (["failure"], "failed", "the image is damaged"),
    (["timeout"], "timed out", "Aborting, restore did not complete in 3 seconds"),
    (["no-device", "exit 4"], "failed",
     "Failed to find device with ecid 001E2D4C0A91C026 after 3 seconds"),
    (["report 13 60"], "interrupted", "the tool ended without a final report"),
])
def test_the_outcome_of_a_tool_that_ended_alone(bench: TestBench, actions, state, reason) -> None:
    job = bench.desk.order(bench.order("report 3 1", bench.gate(), *actions))
    wait_until(lambda: bench.job(job.id).step)
    bench.kill_supervisors()
    bench.go()
    wait_until(lambda: not bench.tools())
    ended = bench.end_of(job.id)
    assert (ended.state, ended.reason, ended.exit_status) == (state, reason, None)


def test_a_tool_that_is_killed_has_failed(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", "wait 600"))
    wait_until(lambda: bench.job(job.id).step)
    processes.kill(bench.tools()[0])
    job = bench.end_of(job.id)
    assert (job.state, job.reason) == (JobState.FAILED, "ended with status -9")


def test_a_job_that_was_taken_over_is_cancelled(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", "wait 600"))
    wait_until(lambda: bench.job(job.id).step)
    bench.kill_supervisors()
    bench.desk.cancel(job.id, asked_by="me")
    job = bench.end_of(job.id)
    assert (job.state, job.reason) == (JobState.CANCELLED, "cancelled by me")
    assert not bench.tools()


def test_a_job_that_was_taken_over_hangs(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", "wait 600", silence_timeout=2.0))
    wait_until(lambda: bench.job(job.id).step)
    bench.kill_supervisors()
    job = bench.end_of(job.id)
    assert (job.state, job.reason) == (JobState.HUNG, "no report for 2 s")
    assert not bench.tools()


# Kills the supervisor when it calls a function of a class for the nth time, before or after that.
KILLED = """
import importlib, os, signal, sys
from qnrescue.places import bench_folder
from qnrescue.supervisor import supervise
folder, module, path, when, count = sys.argv[1:]
*owners, name = path.split(".")
owner = importlib.import_module(module)
for part in owners:
    owner = getattr(owner, part)
original = getattr(owner, name)
calls = 0
def deadly(*arguments, **named):
    global calls
    calls += 1
    if calls == int(count) and when == "before":
        os.kill(os.getpid(), signal.SIGKILL)
    result = original(*arguments, **named)
    if calls == int(count) and when == "after":
        os.kill(os.getpid(), signal.SIGKILL)
    return result
setattr(owner, name, deadly)
supervise(bench_folder(folder), None)
"""


@pytest.mark.parametrize("module, path, when, count, starts, state", [
    ("qnrescue.journal", "Journal.record_supervisor", "after", 1, 1, "succeeded"),
    ("qnrescue.journal", "Journal.claim", "before", 1, 1, "succeeded"),
    ("qnrescue.journal", "Journal.claim", "after", 1, 0, "interrupted"),
    ("qnrescue.run", "write_record", "before", 1, 0, "interrupted"),
    ("qnrescue.processes", "start_detached", "before", 1, 0, "interrupted"),
    ("qnrescue.processes", "start_detached", "after", 1, 1, "succeeded"),
    ("qnrescue.journal", "Journal.record_process", "before", 1, 1, "succeeded"),
    ("qnrescue.journal", "Journal.record_process", "after", 1, 1, "succeeded"),
    ("qnrescue.journal", "Journal.record_progress", "before", 1, 1, "succeeded"),
    ("qnrescue.journal", "Journal.record_progress", "after", 1, 1, "succeeded"),
    ("qnrescue.supervisor", "write_record", "before", 1, 1, "succeeded"),
    ("qnrescue.journal", "Journal.record_end", "before", 1, 1, "succeeded"),
    ("qnrescue.journal", "Journal.record_end", "after", 1, 1, "succeeded"),
])
def test_a_supervisor_is_killed_at_an_instant(bench: TestBench, module, path, when, count, starts,
                                              state) -> None:
    order = bench.order("report 3 1", "report 13 60", "wait 0.5", "complete")
    job = bench.desk.journal.submit(order, "test")
    victim = run_python(KILLED, str(bench.folder), module, path, when, str(count))
    assert victim.wait(TIME_LIMIT) == -signal.SIGKILL
    job = bench.end_of(job.id)
    assert (job.state, len(bench.starts())) == (state, starts), job
    assert bench.desk.order(bench.order("complete", device=job.device)).state is JobState.QUEUED


@pytest.mark.parametrize("when", ["before", "after"])
@pytest.mark.parametrize("path", ["Journal.record_verdict", "Journal.record_end"])
@pytest.mark.parametrize("actions, state", [(["wait 600"], "hung"),
                                            (["failure", "wait 600"], "failed")])
def test_a_supervisor_is_killed_while_it_ends_a_job(bench: TestBench, path, when, actions,
                                                    state) -> None:
    order = bench.order("report 3 1", *actions, silence_timeout=1.0)
    job = bench.desk.journal.submit(order, "test")
    victim = run_python(KILLED, str(bench.folder), "qnrescue.journal", path, when, "1")
    assert victim.wait(TIME_LIMIT) == -signal.SIGKILL
    assert bench.end_of(job.id).state == state
    wait_until(lambda: not bench.tools())


def test_a_process_that_appears_late_is_found(bench: TestBench) -> None:
    """The supervisor may be killed just before the process gets its words."""
    order = bench.order("report 3 1", bench.gate(), "complete")
    job = bench.desk.journal.submit(order, "test")
    assert bench.desk.journal.claim(job.id)
    files = bench.desk.files(job.id)
    files.path.mkdir(parents=True)
    words = [*order.tool, *order.arguments(str(files.log))]
    late = "import json, os, time; words = json.loads(os.environ['WORDS']);" \
           " time.sleep(1); os.execv(words[0], words)"
    with files.documents.open("wb") as output:
        process = subprocess.Popen([sys.executable, "-c", late], stdout=output,
                                   env={**os.environ, "WORDS": json.dumps(words)})
    ensure_supervisor(bench.desk.folder)
    wait_until(lambda: bench.job(job.id).step)
    bench.go()
    process.wait()
    assert bench.end_of(job.id).state is JobState.SUCCEEDED
    assert bench.starts() == [order.device]


def test_there_is_one_supervisor(bench: TestBench) -> None:
    for _ in range(8):
        ensure_supervisor(bench.desk.folder)
    job = bench.desk.order(bench.order("report 3 1", bench.gate(), "complete"))
    wait_until(lambda: bench.job(job.id).step)
    wait_until(lambda: len(bench.supervisors()) == 1)
    supervisor = bench.desk.journal.supervisor()
    assert supervisor == bench.supervisors()[0]
    assert not supervise(bench.desk.folder, None)
    bench.go()
    bench.end_of(job.id)


def test_a_supervisor_without_jobs_ends(bench: TestBench) -> None:
    assert supervise(bench.desk.folder, 0.0)


def test_a_job_that_comes_while_the_supervisor_ends_is_not_forgotten(bench: TestBench,
                                                                     monkeypatch) -> None:
    order = bench.order("complete")
    original = FileLock.release
    submitted = []

    def release(lock: FileLock) -> None:
        # Whoever orders a job now sees that the lock is held, and starts no supervisor.
        if not submitted:
            submitted.append(bench.desk.journal.submit(order, "test"))
        original(lock)

    monkeypatch.setattr(FileLock, "release", release)
    assert supervise(bench.desk.folder, 0.0)
    assert bench.job(submitted[0].id).state is JobState.SUCCEEDED


def test_modules_in_the_folder_are_not_used(bench: TestBench) -> None:
    for name in ("json.py", "qnrescue.py", "psutil.py"):
        (bench.folder / name).write_text("raise SystemExit(1)")
    assert bench.restore("complete").state is JobState.SUCCEEDED


@pytest.mark.full
@pytest.mark.parametrize("seed", range(3))
def test_supervisors_are_killed_again_and_again(bench: TestBench, seed: int) -> None:
    chance = random.Random(seed)
    jobs = []
    for _ in range(12):
        steps = [f"wait {chance.uniform(0, 0.3)}", "report 13 60"] * 5
        jobs.append(bench.desk.order(bench.order("report 3 1", *steps, "complete")))
        time.sleep(chance.uniform(0, 0.4))
        for process in bench.supervisors():
            processes.kill(process)
        ensure_supervisor(bench.desk.folder)
    ends = [bench.end_of(job.id) for job in jobs]
    # Killed between the claim and the start of the tool, a job is interrupted and starts nothing.
    started = {job.device: bench.starts().count(job.device) for job in ends}
    assert {job.device: job.state for job in ends} == {
        device: JobState.SUCCEEDED if count else JobState.INTERRUPTED
        for device, count in started.items()}
    assert set(started.values()) <= {0, 1} and list(started.values()).count(1) >= 6
    assert not bench.tools()


def test_starts_what_was_ordered_while_a_journal_was_replaced(bench: TestBench) -> None:
    journal = bench.desk.journal
    with Journal(bench.folder) as own:
        supervisor = Supervisor(BenchFolder(bench.folder), own)
        for _ in range(4):
            supervisor.step()
            journal.replace_broken()
            job = journal.submit(bench.order("complete"), "the test")
            supervisor.step()
            assert journal.job(job.id).state is not JobState.QUEUED
            wait_until(lambda: supervisor.step() or supervisor.is_idle)
