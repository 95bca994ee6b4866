"""The supervisor: the process that starts the tool for each job, follows it and ends it.

There is one for each journal. It may be killed at any instant: the restores go on, and the next one
takes them over."""

from __future__ import annotations

import argparse
import logging
import os
import subprocess
import sys
import time
from pathlib import Path

from qnrescue import processes
from qnrescue.documents_file import DocumentsFile
from qnrescue.file_lock import FileLock
from qnrescue.jobs import Job, JobState
from qnrescue.journal import Journal, RunningJob
from qnrescue.outcome import RestoreProgress
from qnrescue.places import BenchFolder, bench_folder, share_like_folder
from qnrescue.processes import ProcessIdentity

log = logging.getLogger("qnrescue.supervisor")

# How often to look at the journal and the files, in seconds.
_TICK = 0.1
# How often the progress of a job is written down, in seconds.
_RECORD_SECONDS = 1.0
# How long to look for a process that was started, but not written down, in seconds.
_SEARCH_SECONDS = 3.0
# How long a supervisor without jobs stays, in seconds.
IDLE_SECONDS = 30.0


class Run:
    """A job whose tool runs, or has run."""

    def __init__(self, job: Job, folder: BenchFolder, process: ProcessIdentity | None,
                 started: float, popen: subprocess.Popen[bytes] | None = None,
                 verdict: tuple[JobState, str] | None = None) -> None:
        self.job = job
        self.process = process
        self.progress = RestoreProgress(enter_restore_mode=job.order.enter_restore_mode)
        self.verdict = verdict
        self._popen = popen
        self._started = started  # the monotonic clock
        self._folder = folder.job(job.id)
        self._documents = DocumentsFile(self._folder.documents)
        self._latest_report = time.monotonic()
        self._recorded: tuple[object, ...] = ()
        self._recorded_at = 0.0

    @property
    def seconds(self) -> float:
        """Returns for how long the tool has run."""
        return max(0.0, time.monotonic() - self._started)

    def exit_status(self) -> int | None:
        """Returns the tool's exit status; None if it is not known."""
        return None if self._popen is None else self._popen.poll()

    def is_running(self) -> bool:
        """Returns whether the tool runs."""
        if self._popen is not None:
            return self._popen.poll() is None
        return self.process is not None and processes.is_running(self.process)

    def read(self) -> None:
        """Takes over the documents that have come."""
        for event in self._documents.read():
            self.progress.feed(event)
            self._latest_report = time.monotonic()

    def judge(self) -> tuple[JobState, str] | None:
        """Returns how the job has to be ended now, and why; None if it may go on."""
        limit = self.job.order.silence_timeout
        if self.progress.has_failed:
            return self.progress.ended(None)
        if limit is not None and time.monotonic() - self._latest_report >= limit:
            return JobState.HUNG, f"no report for {limit:g} s"
        return None

    def end_process(self) -> bool:
        """Ends the tool; returns whether it has ended."""
        if self._popen is not None:
            self._popen.kill()
            self._popen.wait()
            return True
        return self.process is None or processes.end(self.process)

    def news(self) -> bool:
        """Returns whether there is progress to write down: a new step at once, percents seldom."""
        state = self.progress
        current = state.operation, state.step, state.progress
        now = time.monotonic()
        due = now - self._recorded_at >= _RECORD_SECONDS
        if current == self._recorded or (current[:2] == self._recorded[:2] and not due):
            return False
        self._recorded, self._recorded_at = current, now
        return True

    def last_words(self) -> str:
        """Returns the last line that the tool wrote to standard error."""
        try:
            with self._folder.errors.open("rb") as file:
                file.seek(max(0, self._folder.errors.stat().st_size - 4096))
                lines = file.read().decode("utf-8", "replace").split("\n")
        except OSError:
            return ""
        return next((line.strip() for line in reversed(lines) if line.strip()), "")


class Supervisor:
    """Starts, follows and ends the jobs of a journal. The caller holds the supervisor's lock."""

    def __init__(self, folder: BenchFolder, journal: Journal) -> None:
        self._folder = folder
        self._journal = journal
        self._runs: dict[str, Run] = {}
        self._data_version: int | None = None

    def adopt(self) -> None:
        """Takes over the jobs that another supervisor has left."""
        for left in self._journal.running():
            self._runs[left.job.id] = self._adopted(left)
            log.info("job %s: adopted", left.job.id)

    def _adopted(self, left: RunningJob) -> Run:
        process = left.process or self._search(left.job)
        if process is not None and left.process is None:
            self._journal.record_process(left.job.id, process)
        return Run(left.job, self._folder, process, left.clock or time.monotonic(),
                   verdict=left.verdict)

    def _search(self, job: Job) -> ProcessIdentity | None:
        """Returns the process of a job that was claimed: it may be about to start."""
        limit = time.monotonic() + _SEARCH_SECONDS
        while True:
            log_file = str(self._folder.job(job.id).log)
            found = processes.find(lambda words: processes.follow_each_other(
                words, "--amr-logfile", log_file))
            if found or time.monotonic() >= limit:
                return found[0] if found else None
            time.sleep(_TICK)

    @property
    def is_idle(self) -> bool:
        """Returns whether there is nothing to do."""
        return not self._runs and not self._journal.jobs(JobState.QUEUED, limit=1)

    def step(self) -> None:
        """Does what there is to do, without waiting for anything."""
        version = self._journal.data_version()
        if version != self._data_version:
            self._obey_cancels()
            self._start_queued()
            self._data_version = version
        for run in list(self._runs.values()):
            self._follow(run)
        news = [run for run in self._runs.values() if run.news()]
        if news:
            self._journal.record_progress([(run.job.id, run.progress, run.seconds) for run in news])

    def _obey_cancels(self) -> None:
        for left in self._journal.running():
            run = self._runs.get(left.job.id)
            if run and left.job.cancel_asked_by and run.verdict is None:
                run.verdict = JobState.CANCELLED, f"cancelled by {left.job.cancel_asked_by}"

    def _start_queued(self) -> None:
        for job in reversed(self._journal.jobs(JobState.QUEUED)):
            if self._journal.claim(job.id):
                self._start(job)

    def _start(self, job: Job) -> None:
        folder = self._folder.job(job.id)
        try:
            folder.path.parent.mkdir(exist_ok=True)
            folder.path.mkdir()
            share_like_folder(folder.path)
            with folder.documents.open("xb") as output, folder.errors.open("xb") as errors:
                popen = processes.start_detached(
                    [*job.order.tool, *job.order.arguments(str(folder.log))], folder.path, output,
                    errors)
        except OSError as fault:
            self._journal.record_end(job.id, JobState.REFUSED, f"cannot start: {fault}")
            return
        process = processes.identify(popen.pid)
        if process is not None:
            self._journal.record_process(job.id, process)
        self._runs[job.id] = Run(job, self._folder, process, time.monotonic(), popen)
        log.info("job %s: started, process %s", job.id, popen.pid)

    def _follow(self, run: Run) -> None:
        running = run.is_running()  # before reading, so that nothing is missed
        run.read()
        if running:
            if run.verdict is None and (verdict := run.judge()):
                self._journal.record_verdict(run.job.id, *verdict)
                run.verdict = verdict
            if run.verdict is None or not run.end_process():
                return
            run.read()
        self._end(run)

    def _end(self, run: Run) -> None:
        status = run.exit_status()
        state, reason = run.progress.ended(status, run.last_words())
        if run.verdict is not None and state is not JobState.SUCCEEDED:
            state, reason = run.verdict
            status = None
        self._journal.record_end(run.job.id, state, reason, seconds=run.seconds,
                                 exit_status=status, progress=run.progress)
        del self._runs[run.job.id]
        log.info("job %s: %s %s", run.job.id, state, reason)


def supervise(folder: BenchFolder, idle_seconds: float | None) -> bool:
    """Supervises the jobs until there are none for `idle_seconds`; None: for good. Returns false at
    once if another process does so already."""
    lock = FileLock(folder.supervisor_lock)
    while True:
        if not lock.try_acquire():
            return False
        with lock, Journal(folder.journal) as journal:
            _work(folder, journal, idle_seconds)
        # Whoever ordered a job while the lock was held relies on this process.
        with Journal(folder.journal) as journal:
            if not journal.jobs(JobState.QUEUED, limit=1):
                return True


def _work(folder: BenchFolder, journal: Journal, idle_seconds: float | None) -> None:
    identity = processes.identify(os.getpid())
    assert identity is not None
    journal.record_supervisor(identity)
    supervisor = Supervisor(folder, journal)
    supervisor.adopt()
    idle_since = time.monotonic()
    while True:
        supervisor.step()
        if not supervisor.is_idle:
            idle_since = time.monotonic()
        elif idle_seconds is not None and time.monotonic() - idle_since >= idle_seconds:
            return
        time.sleep(_TICK)


_started: list[subprocess.Popen[bytes]] = []


def ensure_supervisor(folder: BenchFolder) -> None:
    """Starts a supervisor in the background, unless one is there. Raises OSError if that fails."""
    lock = FileLock(folder.supervisor_lock)
    if not lock.try_acquire():
        return
    lock.release()
    _started[:] = [popen for popen in _started if popen.poll() is None]
    with folder.supervisor_log.open("ab") as output:
        _started.append(processes.start_detached(
            [sys.executable, "-m", "qnrescue.supervisor", str(folder.path)], folder.path,
            subprocess.DEVNULL, output))


def main() -> int:
    """Supervises the jobs of a folder in the background."""
    parser = argparse.ArgumentParser(prog="qnrescue.supervisor", description=main.__doc__)
    parser.add_argument("folder")
    parser.add_argument("--idle", type=float, default=IDLE_SECONDS, metavar="SECONDS")
    options = parser.parse_args()
    logging.basicConfig(level=logging.INFO, format="%(asctime)s %(process)d %(message)s")
    supervise(bench_folder(options.folder), options.idle)
    return 0


if __name__ == "__main__":
    sys.exit(main())
