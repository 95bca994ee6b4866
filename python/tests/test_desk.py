from __future__ import annotations

import os
import sys
from dataclasses import replace
from pathlib import Path

import pytest

from bench_of_tests import TestBench, run_python, wait_until
from plists import ECID
from qnrescue.events import RestoreStatus
from qnrescue.jobs import JobOrder, JobState
from qnrescue.supervisor import SupervisorFailure, ensure_supervisor


def test_events_of_a_job_come_as_they_are_printed(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", bench.gate("a"), "report 13 60",
                                       bench.gate("b"), "complete"))
    found = []
    for event in bench.desk.events(job.id):
        assert isinstance(event, RestoreStatus)
        found.append(event.step)
        bench.go("a" if event.operation == 3 else "b")
    assert found == ["step 3", "step 13", "Successful"]
    assert [event.step for event in bench.desk.events(job.id)] == found
    with pytest.raises(KeyError):
        next(bench.desk.events("unknown"))


def test_changes_of_a_job(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", bench.gate(), "complete"))
    other = bench.desk.order(bench.order("complete"))
    seen = []
    for changed in bench.desk.changes(job.id):
        assert changed.id == job.id != other.id
        seen.append(changed)
        if changed.step:
            bench.go()
    assert [one.revision for one in seen] == sorted({one.revision for one in seen})
    assert seen[-1] == bench.job(job.id) and seen[-1].state is JobState.SUCCEEDED
    assert list(bench.desk.changes(job.id)) == seen[-1:]
    with pytest.raises(KeyError):
        next(bench.desk.changes(job.id, "unknown"))


def test_changes_of_several_jobs_go_on_to_the_last_end(bench: TestBench) -> None:
    jobs = [bench.desk.order(bench.order("complete")),
            bench.desk.order(bench.order("report 3 1", bench.gate(), "complete"))]
    ended = []
    for changed in bench.desk.changes(*(job.id for job in jobs)):
        if changed.state.is_end:
            ended.append(changed.id)
            bench.go()
    assert ended == [job.id for job in jobs]


def test_a_timeout(bench: TestBench) -> None:
    job = bench.desk.order(bench.order("report 3 1", "wait 600"))
    assert bench.desk.wait(job.id, timeout=0.3).state in (JobState.QUEUED, JobState.RUNNING)
    assert list(bench.desk.changes(job.id, timeout=0.0)) == [bench.job(job.id)]


def test_paths_count_from_the_folder_of_the_program(bench: TestBench, tmp_path,
                                                    monkeypatch) -> None:
    monkeypatch.chdir(tmp_path)
    tool = tmp_path / "tool"
    tool.touch(mode=0o755)
    order = bench.desk.order(JobOrder(ECID, "a.ipsw", tool=("./tool", "x"))).order
    assert (order.bundle, order.tool) == (str(tmp_path / "a.ipsw"), (str(tool), "x"))
    monkeypatch.setenv("PATH", str(tmp_path))
    order = bench.desk.order(JobOrder("0" * 16, plist="o.plist", tool=("tool",))).order
    assert (order.bundle, order.plist, order.tool) == ("", str(tmp_path / "o.plist"), (str(tool),))
    order = bench.desk.order(JobOrder("1" * 16, "b", tool=("missing",))).order
    assert order.tool == ("missing",)


def test_who_asked(bench: TestBench) -> None:
    assert f"(process {os.getpid()} on " in bench.desk.order(bench.order("complete")).asked_by
    assert bench.desk.order(bench.order("complete"), asked_by="me").asked_by == "me"


ORDER = """
import sys
from qnrescue.desk import Desk
from qnrescue.jobs import JobOrder
with Desk(sys.argv[1]) as desk:
    desk.order(JobOrder(sys.argv[2], sys.argv[3], tool=sys.argv[4:]))
"""


def test_programs_that_want_one_device_get_one_restore(bench: TestBench) -> None:
    order = bench.order("report 3 1", bench.gate(), "complete")
    programs = [run_python(ORDER, str(bench.folder), order.device, order.bundle, *order.tool)
                for _ in range(6)]
    assert [program.wait(60) for program in programs] == [0] * 6
    bench.go()
    (first,) = [job for job in bench.desk.journal.jobs() if job.state is not JobState.REFUSED]
    assert len(bench.desk.journal.jobs()) == 6
    assert bench.end_of(first.id).state is JobState.SUCCEEDED
    assert bench.starts() == [order.device]


def test_the_end_of_the_ordering_program_is_not_the_end_of_the_job(bench: TestBench) -> None:
    order = bench.order("report 3 1", bench.gate(), "complete")
    program = run_python(ORDER, str(bench.folder), order.device, order.bundle, *order.tool)
    assert program.wait(60) == 0
    (job,) = bench.desk.journal.jobs()
    wait_until(lambda: bench.job(job.id).step)
    bench.go()
    assert bench.end_of(job.id).state is JobState.SUCCEEDED


def test_one_may_look_at_a_bench_that_nobody_can_supervise(bench: TestBench,
                                                           monkeypatch) -> None:
    job = bench.desk.journal.submit(bench.order("complete"), "me")

    def refuse(_: object) -> None:
        raise PermissionError

    monkeypatch.setattr("qnrescue.desk.ensure_supervisor", refuse)
    assert bench.desk.wait(job.id, timeout=0.3).state is JobState.QUEUED
    ensure_supervisor(bench.desk.folder)
    assert bench.end_of(job.id).state is JobState.SUCCEEDED


def test_a_supervisor_that_cannot_work_is_reported(bench: TestBench, monkeypatch) -> None:
    job = bench.desk.journal.submit(bench.order("complete"), "me")
    monkeypatch.setattr(sys, "executable", "/bin/false")
    with pytest.raises(SupervisorFailure, match="ends at once, with status 1"):
        bench.desk.wait(job.id, timeout=30)


def test_files(bench: TestBench) -> None:
    assert bench.desk.files("order-1").path == Path(bench.folder, "jobs", "order-1")


def test_followers_go_on_with_the_next_journal(bench: TestBench) -> None:
    """The revisions of the journal that replaces a broken one begin anew."""
    journal = bench.desk.journal
    job = journal.submit(bench.order("complete"), "somebody")
    for _ in range(5):
        journal.cancel(journal.submit(bench.order("complete"), "somebody").id, "somebody")
    follower = bench.desk.follower(job.id)
    assert [one.id for one in follower.news()] == [job.id]
    journal.replace_broken()
    assert follower.news() == []
    journal.restore_record(replace(job, state=JobState.SUCCEEDED))
    assert [one.state for one in follower.news()] == [JobState.SUCCEEDED]
    assert follower.is_over


def test_a_user_without_a_name(bench: TestBench, monkeypatch) -> None:
    def refuse() -> str:
        raise KeyError("getpwuid(): uid not found: 12345")

    monkeypatch.setattr("getpass.getuser", refuse)
    job = bench.desk.order(bench.order("complete"))
    assert job.asked_by.startswith(f"a user without a name (process {os.getpid()} on ")
    bench.end_of(job.id)
