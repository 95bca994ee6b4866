from __future__ import annotations

import dataclasses
import time
from pathlib import Path

import pytest

from plists import ECID, step
from qnrescue import run as module
from qnrescue.jobs import Job, JobOrder, JobState
from qnrescue.places import BenchFolder
from qnrescue.run import Run


class Clock:
    """A clock that a test sets."""

    def __init__(self) -> None:
        self.now = 1000.0

    def monotonic(self) -> float:
        return self.now

    def time(self) -> float:
        return time.time()


@pytest.fixture
def clock(monkeypatch: pytest.MonkeyPatch) -> Clock:
    clock = Clock()
    monkeypatch.setattr(module, "time", clock)
    return clock


@pytest.fixture
def left(tmp_path: Path, clock: Clock) -> Run:
    """Returns a job whose tool has ended, unseen; nothing is known but its documents."""
    job = Job("job", JobOrder(ECID, "/x.ipsw"), JobState.RUNNING, "me", 1, 0.0, seconds=7.0)
    folder = BenchFolder(tmp_path)
    folder.job(job.id).path.mkdir(parents=True)
    return Run(job, folder, None, clock.now - 500)


def report(run: Run, *values: bytes) -> None:
    """Adds documents to those of the job, and lets it read them."""
    with run._folder.documents.open("ab") as file:
        file.write(b"".join(values))
    run.read()


def test_a_new_step_is_written_down_at_once_and_percents_seldom(left: Run, clock: Clock) -> None:
    assert not left.has_news()
    report(left, step(3, 1, "step 3"))
    assert left.has_news()
    report(left, step(3, 2, "step 3"))
    assert not left.has_news()
    clock.now += 1.1
    assert left.has_news()
    assert not left.has_news()
    report(left, step(13, 60, "step 13"))
    assert left.has_news()


def test_how_long_a_tool_has_run_that_nobody_saw_is_not_made_up(left: Run) -> None:
    report(left, step(3, 1, "step 3"))
    ended = left.ended()
    assert (ended.state, ended.seconds, ended.exit_status) == (JobState.INTERRUPTED, 7.0, None)


def test_silence_counts_from_the_latest_report(left: Run, clock: Clock) -> None:
    limit = left.job.order.silence_timeout
    assert limit is not None
    clock.now += limit - 1
    report(left, step(3, 1, "step 3"))
    clock.now += limit - 1
    assert left.judge() is None
    clock.now += 1
    assert left.judge() == (JobState.HUNG, f"no report for {limit:g} s")
    left.job = dataclasses.replace(
        left.job, order=dataclasses.replace(left.job.order, silence_timeout=None))
    assert left.judge() is None
