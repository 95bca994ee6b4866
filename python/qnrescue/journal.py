"""The journal: all jobs of a bench, in a database that several programs use at once."""

from __future__ import annotations

import dataclasses
import json
import sqlite3
import time
from collections.abc import Iterable, Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import Any

from qnrescue.jobs import Job, JobOrder, JobState, check_job_id, new_job_id
from qnrescue.outcome import RestoreProgress
from qnrescue.processes import ProcessIdentity

SCHEMA_VERSION = 1

_SCHEMA = """
CREATE TABLE jobs (
    id TEXT PRIMARY KEY,
    device TEXT NOT NULL,
    "order" TEXT NOT NULL,
    state TEXT NOT NULL,
    asked_by TEXT NOT NULL,
    cancel_asked_by TEXT NOT NULL DEFAULT '',
    ordered_at REAL NOT NULL,
    started_at REAL,
    ended_at REAL,
    seconds REAL NOT NULL DEFAULT 0,
    operation INTEGER,
    step TEXT NOT NULL DEFAULT '',
    progress INTEGER NOT NULL DEFAULT 0,
    reason TEXT NOT NULL DEFAULT '',
    exit_status INTEGER,
    pid INTEGER,
    created TEXT,
    clock REAL,
    verdict TEXT,
    revision INTEGER NOT NULL
) STRICT;
CREATE UNIQUE INDEX one_job_of_a_device ON jobs (device) WHERE state IN ('queued', 'running');
CREATE INDEX jobs_by_revision ON jobs (revision);
CREATE INDEX jobs_by_device ON jobs (device, ordered_at);
CREATE TABLE facts (name TEXT PRIMARY KEY, value TEXT NOT NULL) STRICT;
INSERT INTO facts VALUES ('revision', '0');
"""


class JournalError(Exception):
    """The journal cannot be used; the text says why."""


@dataclass(frozen=True)
class RunningJob:
    """What a supervisor needs to know of a job that it did not start itself."""

    job: Job
    process: ProcessIdentity | None  # None: the supervisor was killed before it wrote this down
    clock: float | None  # the monotonic clock of the machine when the tool was started
    verdict: tuple[JobState, str] | None  # how the job was about to be ended, and why


class Journal:
    """A connection to the journal, for one thread."""

    def __init__(self, path: Path, *, busy_timeout: float = 10.0) -> None:
        """Opens the journal and makes it if it is not there. `busy_timeout` is how long to wait for
        others that write, in seconds. Raises JournalError if it cannot be used."""
        self._path = path
        self._database = sqlite3.connect(path, timeout=busy_timeout, isolation_level=None)
        self._database.row_factory = sqlite3.Row
        self._database.execute("PRAGMA journal_mode = WAL")
        self._database.execute("PRAGMA synchronous = FULL")
        self._prepare()

    def __enter__(self) -> Journal:
        return self

    def __exit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Closes the connection."""
        self._database.close()

    def _prepare(self) -> None:
        version = self._version()
        if version == 0:
            with self._writing():
                if self._version() == 0:  # another process may have been faster
                    for statement in _SCHEMA.split(";"):
                        self._database.execute(statement)
                    self._database.execute(f"PRAGMA user_version = {SCHEMA_VERSION}")
        elif version != SCHEMA_VERSION:
            raise JournalError(f"{self._path} has version {version}; this program knows"
                               f" {SCHEMA_VERSION}")

    def _version(self) -> int:
        return int(self._database.execute("PRAGMA user_version").fetchone()[0])

    @contextmanager
    def _writing(self) -> Iterator[None]:
        self._database.execute("BEGIN IMMEDIATE")
        try:
            yield
            self._database.execute("COMMIT")
        except BaseException:
            if self._database.in_transaction:
                self._database.execute("ROLLBACK")
            raise

    def _next_revision(self) -> int:
        row = self._database.execute("UPDATE facts SET value = CAST(value AS INTEGER) + 1"
                                     " WHERE name = 'revision' RETURNING value").fetchone()
        return int(row[0])

    def _update(self, job_id: str, condition: str = "", **values: Any) -> bool:
        """Sets columns of a job and its revision, in a transaction; returns whether it was there."""
        values["revision"] = self._next_revision()
        columns = ", ".join(f"{name} = :{name}" for name in values)
        cursor = self._database.execute(f"UPDATE jobs SET {columns} WHERE id = :id {condition}",
                                        {**values, "id": job_id})
        return cursor.rowcount == 1

    # Orders

    def submit(self, order: JobOrder, asked_by: str, job_id: str | None = None) -> Job:
        """Writes down a new job and returns it. An id that is there gives the job that has it,
        unchanged. If the device has a job already, the new one is refused."""
        job_id = new_job_id() if job_id is None else check_job_id(job_id)
        with self._writing():
            if (known := self.find(job_id)) is not None:
                return known
            busy = self._database.execute(
                "SELECT id FROM jobs WHERE device = ? AND state IN ('queued', 'running')",
                (order.device,)).fetchone()
            state = JobState.REFUSED if busy else JobState.QUEUED
            reason = f"the device has a job already: {busy['id']}" if busy else ""
            now = time.time()
            self._database.execute(
                'INSERT INTO jobs (id, device, "order", state, asked_by, ordered_at, ended_at,'
                " reason, revision) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
                (job_id, order.device, json.dumps(dataclasses.asdict(order)), state, asked_by, now,
                 now if busy else None, reason, self._next_revision()))
            return self.job(job_id)

    def cancel(self, job_id: str, asked_by: str) -> Job:
        """Orders the end of a job and returns it. One in the queue ends at once, a running one by
        the supervisor; one that has ended stays as it is. Raises KeyError without such a job."""
        with self._writing():
            job = self.job(job_id)
            if job.state is JobState.QUEUED:
                self._update(job_id, state=JobState.CANCELLED, cancel_asked_by=asked_by,
                             ended_at=time.time(), reason=f"cancelled by {asked_by}")
            elif job.state is JobState.RUNNING and not job.cancel_asked_by:
                self._update(job_id, cancel_asked_by=asked_by)
            return self.job(job_id)

    # Questions

    def find(self, job_id: str) -> Job | None:
        """Returns the job; None if there is none with this id."""
        row = self._database.execute("SELECT * FROM jobs WHERE id = ?", (job_id,)).fetchone()
        return None if row is None else _job(row)

    def job(self, job_id: str) -> Job:
        """Returns the job. Raises KeyError if there is none with this id."""
        if (job := self.find(job_id)) is None:
            raise KeyError(job_id)
        return job

    def jobs(self, *states: JobState, device: str | None = None,
             limit: int | None = None) -> list[Job]:
        """Returns the jobs in these states, or all, the newest first."""
        conditions = ["1"]
        values: list[str | int] = []
        if states:
            conditions.append(f"state IN ({', '.join('?' * len(states))})")
            values += list(states)
        if device is not None:
            conditions.append("device = ?")
            values.append(device)
        rows = self._database.execute(
            f"SELECT * FROM jobs WHERE {' AND '.join(conditions)}"
            " ORDER BY ordered_at DESC, rowid DESC LIMIT ?", (*values, -1 if limit is None else limit))
        return [_job(row) for row in rows]

    def changes_since(self, revision: int) -> list[Job]:
        """Returns the jobs that have changed after this revision, the latest change last. The
        revision of the last one is where to go on; 0 is the beginning."""
        rows = self._database.execute("SELECT * FROM jobs WHERE revision > ? ORDER BY revision",
                                      (revision,))
        return [_job(row) for row in rows]

    # What a supervisor writes

    def claim(self, job_id: str) -> bool:
        """Takes a job out of the queue, to start it; returns whether it was there. This works only
        once for each job."""
        with self._writing():
            return self._update(job_id, "AND state = 'queued'", state=JobState.RUNNING,
                                started_at=time.time(), clock=time.monotonic())

    def record_process(self, job_id: str, process: ProcessIdentity) -> None:
        """Writes down the tool's process."""
        with self._writing():
            self._update(job_id, pid=process.pid, created=process.created)

    def record_progress(self, progress: Iterable[tuple[str, RestoreProgress, float]]) -> None:
        """Writes down how far jobs are, and for how many seconds they have run."""
        with self._writing():
            for job_id, state, seconds in progress:
                self._update(job_id, "AND state = 'running'", operation=state.operation,
                             step=state.step, progress=state.progress, seconds=seconds)

    def record_verdict(self, job_id: str, state: JobState, reason: str) -> None:
        """Writes down how a job will end, before its process is ended."""
        with self._writing():
            self._update(job_id, "AND state = 'running'", verdict=state, reason=reason)

    def record_end(self, job_id: str, state: JobState, reason: str, *, seconds: float | None = None,
                   exit_status: int | None = None, progress: RestoreProgress | None = None) -> None:
        """Writes down how a job ended. `seconds` of None leaves what was written last."""
        values: dict[str, Any] = {"state": state, "reason": reason, "ended_at": time.time(),
                                  "exit_status": exit_status}
        if seconds is not None:
            values["seconds"] = seconds
        if progress is not None:
            values |= {"operation": progress.operation, "step": progress.step,
                       "progress": progress.progress}
        with self._writing():
            self._update(job_id, "AND state IN ('queued', 'running')", **values)

    def running(self) -> list[RunningJob]:
        """Returns the jobs that were claimed and have not ended."""
        rows = self._database.execute("SELECT * FROM jobs WHERE state = 'running' ORDER BY rowid")
        return [_running_job(row) for row in rows]

    # Facts

    def data_version(self) -> int:
        """Returns a number that changes when another connection has written."""
        return int(self._database.execute("PRAGMA data_version").fetchone()[0])

    def fact(self, name: str) -> str | None:
        """Returns what was written down under this name."""
        row = self._database.execute("SELECT value FROM facts WHERE name = ?", (name,)).fetchone()
        return None if row is None else str(row[0])

    def set_fact(self, name: str, value: str) -> None:
        """Writes something down under a name."""
        with self._writing():
            self._database.execute("INSERT OR REPLACE INTO facts VALUES (?, ?)", (name, value))

    def supervisor(self) -> ProcessIdentity | None:
        """Returns the latest supervisor, which may have ended."""
        value = self.fact("supervisor")
        return None if value is None else ProcessIdentity(*json.loads(value))

    def record_supervisor(self, process: ProcessIdentity) -> None:
        """Writes down who supervises the jobs."""
        self.set_fact("supervisor", json.dumps([process.pid, process.created]))


def _job(row: sqlite3.Row) -> Job:
    names = {field.name for field in dataclasses.fields(Job)} - {"order", "state"}
    return Job(order=JobOrder(**json.loads(row["order"])), state=JobState(row["state"]),
               **{name: row[name] for name in names})


def _running_job(row: sqlite3.Row) -> RunningJob:
    process = None if row["pid"] is None else ProcessIdentity(row["pid"], row["created"])
    verdict = None if row["verdict"] is None else (JobState(row["verdict"]), str(row["reason"]))
    return RunningJob(_job(row), process, row["clock"], verdict)
