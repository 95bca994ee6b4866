"""A job whose tool was started: its process, its files and how far it is."""

from __future__ import annotations

import contextlib
import errno
import os
import subprocess
import sys
import time
from dataclasses import replace

from qnrescue import processes
from qnrescue.documents_file import DocumentsFile
from qnrescue.jobs import Job, JobState
from qnrescue.outcome import RestoreProgress
from qnrescue.places import BenchFolder, make_shared_folder, share_like_folder
from qnrescue.processes import ProcessIdentity
from qnrescue.records import write_record
from qnrescue.steps_file import StepsFile
from qnrescue.tool import last_line

# How often the progress of a job is written down, in seconds.
_RECORD_SECONDS = 1.0
# How much space is reserved for the documents of a job, in bytes: the tool drops what it cannot
# write, and goes on. A thousand reports have about 700,000 bytes.
RESERVED = 2 << 20


class Run:
    """A job whose tool runs, or has run."""

    def __init__(self, job: Job, folder: BenchFolder, process: ProcessIdentity | None,
                 started: float, popen: subprocess.Popen[bytes] | None = None,
                 verdict: tuple[JobState, str] | None = None) -> None:
        """Takes over a job. `started` is when, by the monotonic clock."""
        self.job = job
        self.process = process
        self.progress = RestoreProgress(enter_restore_mode=job.order.enter_restore_mode)
        self.verdict = verdict  # how the job is about to be ended, and why
        self.was_seen = popen is not None  # running, so that it is known for how long
        self._popen = popen
        self._started = started
        self._folder = folder.job(job.id)
        self._documents = DocumentsFile(self._folder.documents)
        self._steps = StepsFile(self._folder.steps)
        self._latest_report = time.monotonic()
        self._recorded: tuple[object, ...] = (None, "", 0)
        self._recorded_at = self._latest_report

    @property
    def seconds(self) -> float:
        """Returns for how long the tool has run."""
        return max(0.0, time.monotonic() - self._started)

    def is_running(self) -> bool:
        """Returns whether the tool runs."""
        if self._popen is not None:
            return self._popen.poll() is None
        is_running = self.process is not None and processes.is_running(self.process)
        self.was_seen = self.was_seen or is_running
        return is_running

    def kill(self) -> None:
        """Ends the tool, which takes a moment."""
        if self._popen is not None:
            self._popen.kill()
        elif self.process is not None:
            processes.kill(self.process)

    def read(self) -> None:
        """Takes over the documents that have come. Raises OSError."""
        for event in self._documents.read():
            self.progress.feed(event)
            self._steps.note(self.progress.step, self.seconds)
            self._latest_report = time.monotonic()

    def judge(self) -> tuple[JobState, str] | None:
        """Returns how the job has to be ended now, and why; None if it may go on."""
        limit = self.job.order.silence_timeout
        if self.progress.has_failed:
            return self.progress.ended(None)  # the tool would only wait now
        if limit is not None and time.monotonic() - self._latest_report >= limit:
            return JobState.HUNG, f"no report for {limit:g} s"
        return None

    def ended(self) -> Job:
        """Returns the job as it is after the end of the tool, and gives back the space that was
        reserved."""
        with contextlib.suppress(OSError):
            self.read()
        with contextlib.suppress(OSError):  # the documents end here; the rest was only reserved
            os.truncate(self._folder.documents, self._documents.size)
        status = None if self._popen is None else self._popen.poll()
        state, reason = self.progress.ended(status, self._last_words())
        if self.verdict is not None and state is not JobState.SUCCEEDED:
            (state, reason), status = self.verdict, None
        return replace(self.job, state=state, reason=reason, exit_status=status,
                       ended_at=time.time(), operation=self.progress.operation,
                       step=self.progress.step, progress=self.progress.progress,
                       seconds=self.seconds if self.was_seen else self.job.seconds)

    def has_news(self) -> bool:
        """Returns whether there is progress to write down: a new step at once, percents seldom."""
        now = time.monotonic()
        current = self.progress.operation, self.progress.step, self.progress.progress
        is_due = now - self._recorded_at >= _RECORD_SECONDS
        if current == self._recorded or (current[:2] == self._recorded[:2] and not is_due):
            return False
        self._recorded, self._recorded_at = current, now
        return True

    def _last_words(self) -> str:
        try:
            with self._folder.errors.open("rb") as file:
                file.seek(max(0, self._folder.errors.stat().st_size - 4096))
                return last_line(file.read())
        except OSError:
            return ""


def start(job: Job, folder: BenchFolder) -> Run:
    """Makes the folder of the job and starts the tool. Raises OSError if that fails, also if the
    folder is there: then the job was started before."""
    files = folder.job(job.id)
    make_shared_folder(folder.jobs)
    files.path.mkdir()
    share_like_folder(files.path)
    write_record(files, job)
    with files.documents.open("xb") as output, files.errors.open("xb") as errors:
        for file in (files.documents, files.errors):
            share_like_folder(file)
        _reserve(output.fileno())
        words = [*job.order.tool, *job.order.arguments(str(files.log))]
        popen = processes.start_detached(words, files.path, output, errors)
    process = processes.identify(popen.pid)
    return Run(job, folder, process, time.monotonic(), popen)


if sys.platform == "linux":
    def _reserve(descriptor: int) -> None:
        try:
            os.posix_fallocate(descriptor, 0, RESERVED)
        except OSError as fault:
            if fault.errno not in (errno.EINVAL, errno.EOPNOTSUPP):  # this file system cannot
                raise
else:
    def _reserve(descriptor: int) -> None:
        os.truncate(descriptor, RESERVED)  # Windows allocates the space
