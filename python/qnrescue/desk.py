"""The desk: where programs order jobs, cancel them and see what becomes of them."""

from __future__ import annotations

import contextlib
import getpass
import os
import shutil
import socket
import time
from collections.abc import Iterator, Sequence
from dataclasses import replace
from pathlib import Path
from types import TracebackType

from qnrescue.documents_file import DocumentsFile
from qnrescue.events import Event
from qnrescue.jobs import Job, JobOrder
from qnrescue.journal import Journal
from qnrescue.places import BenchFolder, JobFolder, bench_folder
from qnrescue.supervisor import ensure_supervisor


def who_asks() -> str:
    """Returns the user, the process and the machine, for people."""
    try:
        user = getpass.getuser()
    except (OSError, KeyError, ImportError):  # a user without a name, or a service of Windows
        user = "a user without a name"
    return f"{user} (process {os.getpid()} on {socket.gethostname()})"


class Desk:
    """The jobs of a bench, for one thread. Jobs run on when the desk closes or its process ends."""

    def __init__(self, folder: str | Path | BenchFolder | None = None) -> None:
        """Opens the journal of the folder; None: that of the machine. Raises JournalError or
        OSError."""
        self.folder = folder if isinstance(folder, BenchFolder) else bench_folder(folder)
        self.journal = Journal(self.folder.path)

    def __enter__(self) -> Desk:
        return self

    def __exit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Closes the journal."""
        self.journal.close()

    def order(self, order: JobOrder, *, job_id: str | None = None,
              asked_by: str | None = None) -> Job:
        """Orders a restore and returns its job, which may have been refused. Relative paths count
        from this process' folder."""
        job = self.journal.submit(_resolved(order), asked_by or who_asks(), job_id)
        ensure_supervisor(self.folder)
        return job

    def cancel(self, job_id: str, *, asked_by: str | None = None) -> Job:
        """Orders the end of a job and returns it as it is now. Raises KeyError without such a
        job."""
        job = self.journal.cancel(job_id, asked_by or who_asks())
        if not job.state.is_end:
            ensure_supervisor(self.folder)
        return job

    def files(self, job_id: str) -> JobFolder:
        """Returns where the files of the job are."""
        return self.folder.job(job_id)

    def follower(self, *job_ids: str) -> Follower:
        """Returns what follows these jobs. Raises KeyError if one of them is not there."""
        return Follower(self, job_ids)

    def changes(self, *job_ids: str, timeout: float | None = None) -> Iterator[Job]:
        """Yields each of the jobs as it is now, and again at each change, until all have ended or
        `timeout` seconds are over. Raises KeyError if one of them is not there."""
        follower = self.follower(*job_ids)
        limit = None if timeout is None else time.monotonic() + timeout
        while True:
            yield from follower.news()
            if follower.is_over or (limit is not None and time.monotonic() >= limit):
                return
            time.sleep(follower.POLL_SECONDS)

    def wait(self, job_id: str, timeout: float | None = None) -> Job:
        """Waits for the end of the job, up to `timeout` seconds, and returns it as it is then."""
        for _ in self.changes(job_id, timeout=timeout):
            pass
        return self.journal.job(job_id)

    def events(self, job_id: str) -> Iterator[Event]:
        """Yields the events of the job from its beginning, as they come, until it has ended."""
        follower = self.follower(job_id)
        reader = DocumentsFile(self.files(job_id).documents)
        while True:
            follower.news()  # before reading, so that nothing is missed
            yield from reader.read()
            if follower.is_over:
                return
            time.sleep(follower.POLL_SECONDS)


class Follower:
    """Follows jobs until they have ended, and makes sure that somebody supervises them."""

    POLL_SECONDS = 0.1  # how often to ask for news
    _ENSURE_SECONDS = 1.0

    def __init__(self, desk: Desk, job_ids: Sequence[str]) -> None:
        for job_id in job_ids:
            desk.journal.job(job_id)
        self._desk = desk
        self._job_ids = frozenset(job_ids)
        self._waiting = set(job_ids)
        self._revision = 0
        self._journal_file = desk.journal.path
        self._ensured = time.monotonic() - self._ENSURE_SECONDS

    @property
    def is_over(self) -> bool:
        """Returns whether all the jobs have ended."""
        return not self._waiting

    def news(self) -> list[Job]:
        """Returns the jobs that have changed since the last time; at first all of them."""
        changed = self._changes()
        if changed:
            self._revision = changed[-1].revision
        mine = [job for job in changed if job.id in self._job_ids]
        self._waiting -= {job.id for job in mine if job.state.is_end}
        if self._waiting and time.monotonic() - self._ensured >= self._ENSURE_SECONDS:
            self._ensured = time.monotonic()
            with contextlib.suppress(OSError):  # one may look without the right to write
                ensure_supervisor(self._desk.folder)
        return mine

    def _changes(self) -> list[Job]:
        changed = self._desk.journal.changes_since(self._revision)
        if self._desk.journal.path != self._journal_file:  # the other one was found broken
            self._journal_file, self._revision = self._desk.journal.path, 0
            return self._desk.journal.changes_since(0)
        return changed


def _resolved(order: JobOrder) -> JobOrder:
    """Returns the order with absolute paths, since the supervisor has another folder and perhaps
    another search path."""
    program = shutil.which(order.tool[0])
    words = (os.path.abspath(program) if program else order.tool[0], *order.tool[1:])
    return replace(order, tool=words,
                   bundle=order.bundle and os.path.abspath(order.bundle),
                   plist=order.plist and os.path.abspath(order.plist))
