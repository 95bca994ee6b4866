from __future__ import annotations

import threading
import time
from dataclasses import replace

import pytest
from hypothesis import given
from hypothesis import strategies as st

from plists import ECID
from qnrescue.database import JournalError
from qnrescue.jobs import JobOrder, JobState
from qnrescue.journal import Journal
from qnrescue.outcome import RestoreProgress
from qnrescue.processes import ProcessIdentity

ORDER = JobOrder(ECID, "/bundles/update.ipsw", erase=True, restore_timeout=60, slot="A 1",
                 tool=("wine", "qnrescue.exe"), repeats="earlier")
OTHER = replace(ORDER, device="000A35D83C60802E")


@pytest.fixture
def journal(tmp_path):
    with Journal(tmp_path) as journal:
        yield journal


def progress(operation: int, step: str, percent: int) -> RestoreProgress:
    state = RestoreProgress()
    state.operation, state.step, state.progress = operation, step, percent
    return state


def end(job, state=JobState.SUCCEEDED):
    return replace(job, state=state, ended_at=1.0, seconds=5.0, reason="because", exit_status=3,
                   operation=0, step="Successful", progress=100)


def test_a_job_is_as_it_was_ordered(journal, tmp_path) -> None:
    job = journal.submit(ORDER, "me")
    assert (job.order, job.device, job.state, job.asked_by) == (ORDER, ECID, "queued", "me")
    assert (job.started_at, job.ended_at, job.seconds, job.reason) == (None, None, 0, "")
    assert abs(job.ordered_at - time.time()) < 60
    with Journal(tmp_path) as another:
        assert another.job(job.id) == job


def test_the_course_of_a_job(journal) -> None:
    job_id = journal.submit(ORDER, "me").id
    assert journal.claim(job_id).state is JobState.RUNNING
    journal.record_process(job_id, ProcessIdentity(17, "then"))
    journal.record_progress([(job_id, progress(13, "Restoring", 40), 2.5)])
    job = journal.job(job_id)
    assert (job.operation, job.step, job.progress, job.seconds) == (13, "Restoring", 40, 2.5)
    journal.record_verdict(job_id, JobState.HUNG, "silence")
    (running,) = journal.running()
    assert running.process == ProcessIdentity(17, "then")
    assert running.verdict == (JobState.HUNG, "silence")
    assert running.clock <= time.monotonic()
    journal.record_end(end(job))
    ended = journal.job(job_id)
    assert ended == replace(end(job), revision=ended.revision)
    assert journal.running() == []


def test_a_job_is_claimed_once(journal) -> None:
    job_id = journal.submit(ORDER, "me").id
    assert journal.claim(job_id)
    assert journal.claim(job_id) is None
    journal.record_end(end(journal.job(job_id)))
    assert journal.claim(job_id) is None
    assert journal.claim("unknown") is None


def test_many_claim_a_job_and_one_gets_it(journal, tmp_path) -> None:
    job_ids = [journal.submit(replace(ORDER, device=f"{number:016X}"), "me").id
               for number in range(20)]
    claimed: list[str] = []

    def claim() -> None:
        with Journal(tmp_path, busy_timeout=60) as mine:
            claimed.extend(job_id for job_id in job_ids if mine.claim(job_id))

    threads = [threading.Thread(target=claim) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert sorted(claimed) == sorted(job_ids)


def test_an_end_stays(journal) -> None:
    job_id = journal.submit(ORDER, "me").id
    job = journal.claim(job_id)
    journal.record_end(end(job))
    ended = journal.job(job_id)
    journal.record_end(end(job, JobState.FAILED))
    journal.record_progress([(job_id, progress(1, "late", 1), 9.0)])
    journal.record_verdict(job_id, JobState.HUNG, "late")
    assert journal.job(job_id) == ended
    assert journal.cancel(job_id, "me") == ended


def test_an_id_names_one_job(journal) -> None:
    first = journal.submit(ORDER, "me", "order-1")
    assert journal.submit(OTHER, "you", "order-1") == first
    with pytest.raises(ValueError):
        journal.submit(ORDER, "me", "../up")


def test_a_device_has_one_job_until_it_ends(journal) -> None:
    first = journal.submit(ORDER, "me")
    refused = journal.submit(ORDER, "you")
    assert (refused.state, refused.reason) == (JobState.REFUSED,
                                               f"the device has a job already: {first.id}")
    assert refused.ended_at is not None
    assert journal.submit(OTHER, "you").state is JobState.QUEUED
    journal.record_end(end(journal.claim(first.id)))
    assert journal.submit(ORDER, "you").state is JobState.QUEUED


def test_cancel(journal) -> None:
    waiting = journal.submit(ORDER, "me")
    cancelled = journal.cancel(waiting.id, "you")
    assert (cancelled.state, cancelled.reason) == (JobState.CANCELLED, "cancelled by you")
    assert journal.claim(waiting.id) is None
    running = journal.submit(ORDER, "me")
    journal.claim(running.id)
    journal.cancel(running.id, "you")
    job = journal.cancel(running.id, "somebody else")
    assert (job.state, job.cancel_asked_by) == (JobState.RUNNING, "you")
    with pytest.raises(KeyError):
        journal.cancel("unknown", "me")


def test_questions(journal) -> None:
    first, second = journal.submit(ORDER, "me"), journal.submit(OTHER, "me")
    journal.claim(second.id)
    assert [job.id for job in journal.jobs()] == [second.id, first.id]
    assert [job.id for job in journal.jobs(JobState.QUEUED)] == [first.id]
    both = journal.jobs(JobState.QUEUED, JobState.RUNNING)
    assert [job.id for job in both] == [second.id, first.id]
    assert [job.id for job in journal.jobs(device=ECID)] == [first.id]
    assert [job.id for job in journal.jobs(limit=1)] == [second.id]
    assert journal.find("unknown") is None
    with pytest.raises(KeyError):
        journal.job("unknown")


def test_a_clock_that_is_set_back_does_not_change_the_order(journal, monkeypatch) -> None:
    first = journal.submit(ORDER, "me")
    monkeypatch.setattr(time, "time", lambda: 1000.0)
    second = journal.submit(OTHER, "me")
    assert [job.id for job in journal.jobs()] == [second.id, first.id]
    assert [job.id for job in journal.changes_since(first.revision)] == [second.id]


def test_changes(journal) -> None:
    assert journal.changes_since(0) == []
    first, second = journal.submit(ORDER, "me"), journal.submit(OTHER, "me")
    assert [job.id for job in journal.changes_since(0)] == [first.id, second.id]
    changed = journal.claim(first.id)
    assert journal.changes_since(second.revision) == [changed]
    assert journal.changes_since(changed.revision) == []


actions = st.lists(st.tuples(st.sampled_from(["submit", "claim", "cancel", "end", "progress"]),
                             st.integers(0, 3)), max_size=30)


@given(actions)
def test_any_course_keeps_the_rules(tmp_path_factory, steps) -> None:
    with Journal(tmp_path_factory.mktemp("journal")) as journal:
        claims: list[str] = []
        revision = 0
        for action, number in steps:
            job_id = f"job-{number}"
            job = journal.find(job_id)
            if action == "submit":
                journal.submit([ORDER, OTHER][number % 2], "me", job_id)
            elif action == "claim" and journal.claim(job_id):
                claims.append(job_id)
            elif action == "cancel" and job:
                journal.cancel(job_id, "me")
            elif action == "end" and job and job.state is JobState.RUNNING:
                journal.record_end(end(job))
            elif action == "progress":
                journal.record_progress([(job_id, progress(1, "step", 1), 1.0)])
            assert job is None or not job.state.is_end or journal.job(job_id) == job
            changes = journal.changes_since(revision)
            revision = changes[-1].revision if changes else revision
        busy = [job.device for job in journal.jobs(JobState.QUEUED, JobState.RUNNING)]
        assert len(busy) == len(set(busy))
        assert len(claims) == len(set(claims))


def test_facts(journal) -> None:
    assert journal.supervisor() is None
    journal.record_supervisor(ProcessIdentity(5, "now"))
    assert journal.supervisor() == ProcessIdentity(5, "now")
    assert journal.fact("unknown") is None


def test_others_see_that_something_was_written(journal, tmp_path) -> None:
    with Journal(tmp_path) as another:
        before = another.data_version()
        assert another.data_version() == before
        journal.submit(ORDER, "me")
        assert another.data_version() != before


def test_the_state_changes_with_what_anybody_writes(journal, tmp_path) -> None:
    with Journal(tmp_path) as another:
        states = [journal.state()]
        assert journal.state() == states[0]
        for writer in (another, journal, another):
            writer.set_fact("weather", str(len(states)))
            states.append(journal.state())
            journal.fact("weather")
            assert journal.state() == states[-1]
        assert len(set(states)) == 4


def test_a_job_of_another_journal_is_written_down(journal) -> None:
    job = end(journal.submit(ORDER, "me", "old"))
    journal.restore_record(job)
    assert journal.job("old").state is JobState.QUEUED
    lost = replace(job, id="lost", started_at=3.0)
    journal.restore_record(lost)
    assert journal.job("lost") == replace(lost, revision=journal.job("lost").revision)


def test_a_journal_of_a_newer_program(journal, tmp_path) -> None:
    journal._database.rows("PRAGMA user_version = 99")
    with pytest.raises(JournalError, match="version 99"):
        Journal(tmp_path)
    assert [path.name for path in tmp_path.glob("*.sqlite")] == ["journal-1.sqlite"]
