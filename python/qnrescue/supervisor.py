"""The supervisor: the process that starts the tool for each job, follows it and ends it.

There is one for each journal. It may be killed at any instant: the restores go on, and the next one
takes them over."""

from __future__ import annotations

import argparse
import contextlib
import logging
import os
import subprocess
import sys
import time
from dataclasses import dataclass, replace
from pathlib import Path

from qnrescue import processes
from qnrescue.database import JournalError
from qnrescue.file_lock import FileLock
from qnrescue.jobs import Job, JobState
from qnrescue.journal import Journal
from qnrescue.machine import Machine
from qnrescue.places import BenchFolder, bench_folder, make_shared_file
from qnrescue.processes import ProcessIdentity
from qnrescue.records import read_records, write_record
from qnrescue.run import Run, start

log = logging.getLogger("qnrescue.supervisor")

# How often to look at the journal and the files, in seconds.
_TICK = 0.1
# How long to wait before a journal that cannot be used is tried again, in seconds.
_RETRY_SECONDS = 0.5
# How long to look for a process that was started, but not written down, in seconds.
SEARCH_SECONDS = 3.0
# How long a supervisor without jobs stays, in seconds.
IDLE_SECONDS = 30.0
# How long others may lock the journal before the supervisor looks after its jobs, in seconds.
_BUSY_TIMEOUT = 1.0
# How many supervisors may fail in a row, and how soon a supervisor ends that fails, in seconds.
_FAILURES = 3
_AT_ONCE_SECONDS = 5.0


class Supervisor:
    """Starts, follows and ends the jobs of a journal. The caller holds the supervisor's lock."""

    def __init__(self, folder: BenchFolder, journal: Journal) -> None:
        self._folder = folder
        self._journal = journal
        self._machine = Machine()
        self._runs: dict[str, Run] = {}
        self._ended: list[Job] = []  # jobs whose end is not written down yet
        self._file: Path | None = None  # of the journal
        self._data_version: int | None = None

    @property
    def is_idle(self) -> bool:
        """Returns whether there was nothing to do in the last step."""
        return not (self._runs or self._ended or self._data_version is None)

    def step(self) -> None:
        """Does what there is to do now. Raises JournalError: then the next call goes on."""
        try:
            self._step()
        except JournalError:
            self._data_version = None  # what was to be done may have been left half done
            raise

    def _step(self) -> None:
        version = self._journal.data_version()
        if self._journal.path != self._file:
            self._open_journal()
            self._data_version = None  # another connection counts for itself
        if version != self._data_version:
            self._take_over()
            self._obey_cancels()
            self._data_version = version if self._start_queued() else None
        for run in list(self._runs.values()):
            self._follow(run)
        self._record()

    def _record(self) -> None:
        while self._ended:
            self._journal.record_end(self._ended[0])
            job = self._ended.pop(0)
            log.info("job %s: %s %s", job.id, job.state, job.reason)
        news = [run for run in self._runs.values() if run.has_news()]
        if news:
            self._journal.record_progress([(run.job.id, run.progress, run.seconds) for run in news])

    # What other supervisors and journals have left

    def _open_journal(self) -> None:
        path = self._journal.path
        self._journal.check()
        identity = processes.identify(os.getpid())
        assert identity is not None
        self._journal.record_supervisor(identity)
        self._restore_records()
        self._file = path
        log.info("supervises %s", path)

    def _take_over(self) -> None:
        own = {*self._runs, *(job.id for job in self._ended)}
        left = [one for one in self._journal.running() if one.job.id not in own]
        found = self._search({one.job.id for one in left if one.process is None})
        for one in left:
            process = one.process or found.get(one.job.id)
            if process is not None and one.process is None:
                self._journal.record_process(one.job.id, process)
            self._runs[one.job.id] = Run(one.job, self._folder, process,
                                         one.clock or time.monotonic(), verdict=one.verdict)
            if process is not None:
                self._machine.note(one.job.device, process)
            log.info("job %s: taken over", one.job.id)

    def _search(self, job_ids: set[str]) -> dict[str, ProcessIdentity]:
        """Returns the processes of jobs that were claimed. They may be about to start."""
        log_files = {str(self._folder.job(job_id).log): job_id for job_id in job_ids}
        limit = time.monotonic() + SEARCH_SECONDS
        found: dict[str, ProcessIdentity] = {}
        while len(found) < len(job_ids):
            running = processes.find(
                lambda words: processes.value_after(words, "--amr-logfile") in log_files)
            for process, words in running.items():
                found[log_files[processes.value_after(words, "--amr-logfile") or ""]] = process
            if time.monotonic() >= limit:
                break
            time.sleep(_TICK)
        return found

    def _restore_records(self) -> None:
        """Writes down the jobs that the journal does not know: an earlier one broke."""
        known = frozenset(job.id for job in self._journal.jobs())
        lost = sorted(read_records(self._folder, known), key=lambda job: job.ordered_at)
        found = self._search({job.id for job in lost
                              if not job.state.is_end and job.id not in self._runs})
        for job in lost:
            run = self._runs.get(job.id)
            process = run.process if run else found.get(job.id)
            if job.state.is_end or process is not None:
                self._journal.restore_record(job)
                if process is not None:
                    self._journal.record_process(job.id, process)
            else:
                self._journal.restore_record(Run(job, self._folder, None, 0).ended())

    # The course of a job

    def _obey_cancels(self) -> None:
        for left in self._journal.running():
            run = self._runs.get(left.job.id)
            if run and left.job.cancel_asked_by and run.verdict is None:
                run.verdict = JobState.CANCELLED, f"cancelled by {left.job.cancel_asked_by}"

    def _start_queued(self) -> bool:
        """Returns whether that was possible."""
        queued = self._journal.jobs(JobState.QUEUED)
        if not queued:
            return True
        with self._machine.starting() as busy:
            if busy is None:
                return False
            for waiting in reversed(queued):
                if job := self._journal.claim(waiting.id):
                    self._start_unless_busy(job, busy.get(job.device))
        return True

    def _start_unless_busy(self, job: Job, other: ProcessIdentity | None) -> None:
        if other is not None:
            self._refuse(job, f"another program restores the device: process {other.pid}")
        elif job.order.not_after is not None and time.time() > job.order.not_after:
            self._refuse(job, "it is too late to start")
        else:
            self._start(job)

    def _start(self, job: Job) -> None:
        try:
            run = start(job, self._folder)
        except (OSError, ValueError) as fault:  # a NUL in an argument is a ValueError
            self._refuse(job, f"cannot start: {fault}")
            return
        self._runs[job.id] = run
        if run.process is not None:
            self._machine.note(job.device, run.process)
            self._journal.record_process(job.id, run.process)
            log.info("job %s: started, process %s", job.id, run.process.pid)

    def _refuse(self, job: Job, reason: str) -> None:
        self._ended.append(replace(job, state=JobState.REFUSED, reason=reason,
                                   ended_at=time.time()))

    def _follow(self, run: Run) -> None:
        is_running = run.is_running()  # before reading, so that nothing is missed
        with contextlib.suppress(OSError):  # perhaps next time
            run.read()
        if not is_running:
            self._end(run)
            return
        if run.verdict is None and (verdict := run.judge()):
            self._journal.record_verdict(run.job.id, *verdict)
            run.verdict = verdict
        if run.verdict is not None:
            run.kill()

    def _end(self, run: Run) -> None:
        job = run.ended()
        with contextlib.suppress(OSError):  # the disk may be full: the journal is what counts
            write_record(self._folder.job(job.id), job)
        self._ended.append(job)
        del self._runs[job.id]


def supervise(folder: BenchFolder, idle_seconds: float | None) -> bool:
    """Supervises the jobs until there are none for `idle_seconds`; None: for good. Returns false at
    once if another process does so already. Raises JournalError if the journal cannot be opened."""
    lock = FileLock(folder.supervisor_lock)
    while True:
        if not lock.acquire(timeout=1.0):  # others take it for a moment, to see whether it is held
            return False
        with lock, Journal(folder.path, busy_timeout=_BUSY_TIMEOUT) as journal:
            _work(Supervisor(folder, journal), idle_seconds)
        # Whoever ordered a job while the lock was held relies on this process.
        with Journal(folder.path) as journal:
            if not journal.jobs(JobState.QUEUED, limit=1):
                return True


def _work(supervisor: Supervisor, idle_seconds: float | None) -> None:
    latest_fault = ""
    idle_since = time.monotonic()
    while True:
        try:
            supervisor.step()
            if not supervisor.is_idle:
                idle_since = time.monotonic()
            elif idle_seconds is not None and time.monotonic() - idle_since >= idle_seconds:
                return
        except (JournalError, OSError) as fault:
            if str(fault) != latest_fault:
                log.warning("%s", fault)
                latest_fault = str(fault)
            time.sleep(_RETRY_SECONDS)
        time.sleep(_TICK)


class SupervisorFailure(Exception):
    """Supervisors end at once; the text says how."""


@dataclass(frozen=True)
class _Start:
    process: subprocess.Popen[bytes]
    at: float  # the monotonic clock
    failures: int  # starts before this one that ended at once

    def failures_now(self) -> int:
        """Returns how many starts in a row ended at once."""
        status = self.process.poll() or 0
        has_failed = status > 0 and time.monotonic() - self.at < _AT_ONCE_SECONDS
        return self.failures + 1 if has_failed else 0  # a signal, which is below 0, is no failure


_starts: dict[Path, _Start] = {}


def ensure_supervisor(folder: BenchFolder) -> None:
    """Starts a supervisor in the background, unless one is there. Raises OSError if that fails, and
    SupervisorFailure if the latest ones that this process has started ended at once."""
    with FileLock(folder.supervisor_lock) as lock:
        if not lock.try_acquire():
            return
    latest = _starts.get(folder.path)
    if latest is not None and latest.process.poll() is None:
        return  # it is about to take the lock
    failures = latest.failures_now() if latest is not None else 0
    if latest is not None and failures >= _FAILURES:
        raise SupervisorFailure(f"the supervisor ends at once, with status {latest.process.poll()};"
                                f" see {folder.supervisor_log}")
    make_shared_file(folder.supervisor_log)
    with folder.supervisor_log.open("ab") as errors:
        # -P: no module is taken from the folder.
        process = processes.start_detached(
            [sys.executable, "-P", "-m", "qnrescue.supervisor", str(folder.path)], folder.path,
            subprocess.DEVNULL, errors)
    _starts[folder.path] = _Start(process, time.monotonic(), failures)


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
