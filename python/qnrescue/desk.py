"""The desk: where programs order jobs, cancel them and see what becomes of them."""

from __future__ import annotations

import getpass
import os
import shutil
import socket
import time
from collections.abc import Callable, Iterator
from dataclasses import replace
from pathlib import Path
from types import TracebackType

from qnrescue.documents_file import DocumentsFile
from qnrescue.events import Event
from qnrescue.jobs import Job, JobOrder
from qnrescue.journal import Journal
from qnrescue.places import BenchFolder, JobFolder, bench_folder
from qnrescue.supervisor import ensure_supervisor

# How often a viewer looks for news, in seconds.
_POLL_SECONDS = 0.1
# How often a viewer makes sure that somebody supervises, in seconds.
_ENSURE_SECONDS = 1.0


def who_asks() -> str:
    """Returns the user, the process and the machine, for people."""
    return f"{getpass.getuser()} (process {os.getpid()} on {socket.gethostname()})"


class Desk:
    """The jobs of a bench, for one thread. Jobs run on when the desk closes or its process ends."""

    def __init__(self, folder: str | Path | BenchFolder | None = None) -> None:
        """Opens the journal of the folder; None: that of the machine. Raises JournalError or
        OSError."""
        self.folder = folder if isinstance(folder, BenchFolder) else bench_folder(folder)
        self.journal = Journal(self.folder.journal)

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

    def changes(self, job_ids: set[str], timeout: float | None = None) -> Iterator[Job]:
        """Yields each of the jobs as it is now, and again at each change, until all have ended or
        `timeout` seconds are over."""
        limit = None if timeout is None else time.monotonic() + timeout
        waiting = set(job_ids)
        revision = 0
        ensure = _Regularly(_ENSURE_SECONDS, lambda: ensure_supervisor(self.folder))
        while waiting:
            for job in self.journal.changes_since(revision):
                revision = job.revision
                if job.id in job_ids:
                    yield job
                    if job.state.is_end:
                        waiting.discard(job.id)
            if not waiting or (limit is not None and time.monotonic() >= limit):
                return
            ensure()
            time.sleep(_POLL_SECONDS)

    def wait(self, job_id: str, timeout: float | None = None) -> Job:
        """Waits for the end of the job, up to `timeout` seconds, and returns it as it is then."""
        for _ in self.changes({job_id}, timeout):
            pass
        return self.journal.job(job_id)

    def events(self, job_id: str) -> Iterator[Event]:
        """Yields the events of the job from its beginning, as they come, until it has ended."""
        reader = DocumentsFile(self.files(job_id).documents)
        ensure = _Regularly(_ENSURE_SECONDS, lambda: ensure_supervisor(self.folder))
        while True:
            has_ended = self.journal.job(job_id).state.is_end  # before reading
            yield from reader.read()
            if has_ended:
                return
            ensure()
            time.sleep(_POLL_SECONDS)


class _Regularly:
    """Calls a function at most once in a number of seconds."""

    def __init__(self, seconds: float, function: Callable[[], None]) -> None:
        self._seconds = seconds
        self._function = function
        self._latest = -seconds

    def __call__(self) -> None:
        now = time.monotonic()
        if now - self._latest >= self._seconds:
            self._latest = now
            self._function()


def _resolved(order: JobOrder) -> JobOrder:
    """Returns the order with absolute paths, since the supervisor has another folder and perhaps
    another search path."""
    program = shutil.which(order.tool[0])
    words = (os.path.abspath(program) if program else order.tool[0], *order.tool[1:])
    return replace(order, tool=words,
                   bundle=order.bundle and os.path.abspath(order.bundle),
                   plist=order.plist and os.path.abspath(order.plist))
