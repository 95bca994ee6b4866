"""The commands follow, jobs and history: what becomes of jobs, and what became of them."""

from __future__ import annotations

import argparse
import time
from collections.abc import Collection, Mapping
from typing import Any

from qnrescue.bench.arguments import count, ecid
from qnrescue.bench.context import CommandFailure, Context
from qnrescue.bench.display import Row, clean, compact, line_of, row_of
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.output import Screen
from qnrescue.bench.values import job_value, local_time
from qnrescue.desk import Desk
from qnrescue.jobs import Job, JobState
from qnrescue.places import BenchFolder


def add_commands(actions: argparse._SubParsersAction[Any],
                 common: argparse.ArgumentParser) -> None:
    """Adds the commands to the command line."""
    follow = actions.add_parser(
        "follow", parents=[common], help="show jobs until they have ended",
        description="Shows a job, or all that are queued or running, until they have ended.")
    follow.add_argument("job", nargs="?", metavar="JOB", help="an id, or the beginning of one")
    follow.set_defaults(act=follow_jobs)
    jobs = actions.add_parser("jobs", parents=[common], help="show what is queued or running")
    jobs.set_defaults(act=show_active)
    history = actions.add_parser("history", parents=[common],
                                 help="show the jobs that have ended, the latest first")
    history.add_argument("ecid", nargs="?", metavar="ECID", type=ecid,
                         help="only those of this device")
    history.add_argument("--limit", type=count, default=50, metavar="N",
                         help="how many; 0: all; default: %(default)s")
    history.set_defaults(act=show_history)


def find_job(desk: Desk, text: str) -> Job:
    """Returns the job with this id, or the only one whose id begins like this. Raises
    CommandFailure."""
    job = desk.journal.find(text)
    if job is not None:
        return job
    found = [each for each in desk.journal.jobs() if text and each.id.startswith(text)]
    if len(found) != 1:
        many = "several jobs begin with" if found else "there is no job"
        raise CommandFailure(ExitStatus.NOTHING, f"{many} {text!r}")
    return found[0]


def follow_jobs(context: Context) -> int:
    """Shows jobs until they have ended."""
    with context.desk() as desk:
        if context.options.job is not None:
            return follow(context, desk, [find_job(desk, context.options.job)])
        jobs = desk.journal.jobs(JobState.QUEUED, JobState.RUNNING)
        if not jobs:
            raise CommandFailure(ExitStatus.NOTHING, "no job is queued or running")
        return follow(context, desk, jobs[::-1])


def follow(context: Context, desk: Desk, jobs: Collection[Job],
           serials: Mapping[str, str] | None = None) -> int:
    """Shows these jobs until they have ended. Returns the exit status."""
    viewer = _Viewer(context, jobs, serials or {})
    follower = desk.follower(*(job.id for job in jobs))
    try:
        with context.output.screen(full=False) as screen:
            while True:
                for job in follower.news():
                    viewer.note(job)
                viewer.draw(screen)
                if follower.is_over:
                    break
                time.sleep(follower.POLL_SECONDS)
    except KeyboardInterrupt:
        context.note("jobs go on: qnrescue-bench follow shows them, and cancel ends one")
        raise
    states = {job.state for job in viewer.jobs.values()}
    return ExitStatus.DONE if states <= {JobState.SUCCEEDED} else ExitStatus.FAILED


class _Viewer:
    """What is shown of some jobs."""

    def __init__(self, context: Context, jobs: Collection[Job],
                 serials: Mapping[str, str]) -> None:
        self._output = context.output
        self._folder = context.folder
        self._serials = serials
        self._said: dict[str, object] = {}
        self.jobs = {job.id: job for job in jobs}

    def note(self, job: Job) -> None:
        """Takes over a job as it is now."""
        self.jobs[job.id] = job
        if self._output.as_json:
            self._output.value(job_value(job, self._folder))
        elif not self._output.on_terminal:
            news = news_of(self._row(job))
            if self._said.get(job.id) != news:
                self._said[job.id] = news
                self._output.line(line_of(self._row(job)))

    def _row(self, job: Job) -> Row:
        return row_of(job, serial=self._serials.get(job.device, ""))

    def draw(self, screen: Screen) -> None:
        """Draws the jobs."""
        if not self._output.on_terminal:
            return
        rows = [self._row(job) for job in self.jobs.values()]
        screen.show(compact(rows, self._output.size[1] - 1))


def news_of(row: Row) -> object:
    """Returns what has to change for another line."""
    return row.look, row.text


def show_active(context: Context) -> int:
    """Shows the jobs that have not ended."""
    with context.desk() as desk:
        jobs = desk.journal.jobs(JobState.QUEUED, JobState.RUNNING)[::-1]
    context.output.table(["job", "slot", "ECID", "state", "%", "step", "since", "asked by"],
                         [[job.id, job.order.slot, job.device, job.state.value, str(job.progress),
                           job.step, local_time(job.started_at or job.ordered_at), job.asked_by]
                          for job in jobs], _values(jobs, context.folder))
    return ExitStatus.DONE


def show_history(context: Context) -> int:
    """Shows the jobs that have ended."""
    ends = [state for state in JobState if state.is_end]
    with context.desk() as desk:
        jobs = desk.journal.jobs(*ends, device=context.options.ecid,
                                 limit=context.options.limit or None)
    context.output.table(["job", "slot", "ECID", "state", "ended", "seconds", "reason"],
                         [[job.id, job.order.slot, job.device, job.state.value,
                           local_time(job.ended_at), f"{job.seconds:.0f}", clean(job.reason)]
                          for job in jobs], _values(jobs, context.folder))
    return ExitStatus.DONE


def _values(jobs: Collection[Job], folder: BenchFolder) -> list[dict[str, Any]]:
    return [job_value(job, folder) for job in jobs]
