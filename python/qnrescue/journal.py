"""The journal: all jobs of a bench, in a database that several programs use at once."""

from __future__ import annotations

import dataclasses
import json
import sqlite3
import time
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import Any

from qnrescue.database import Database
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
CREATE TABLE orders (
    id TEXT PRIMARY KEY,
    payload BLOB NOT NULL,
    received_at REAL NOT NULL,
    answer TEXT,
    is_delivered INTEGER NOT NULL DEFAULT 0
) STRICT;
"""


@dataclass(frozen=True)
class RunningJob:
    """What a supervisor needs to know of a job that it did not start itself."""

    job: Job
    process: ProcessIdentity | None  # None: the supervisor was killed before it wrote this down
    clock: float | None  # the monotonic clock of the machine when the tool was started
    verdict: tuple[JobState, str] | None  # how the job was about to be ended, and why


@dataclass(frozen=True)
class ReceivedOrder:
    """An order that came from elsewhere, as it came."""

    id: str
    payload: bytes
    received_at: float
    answer: str | None  # None: there is none yet
    is_delivered: bool  # whether the answer has reached who passes it on


class Journal:
    """A connection to the journal, for one thread. Every operation may raise JournalError."""

    def __init__(self, folder: Path, *, busy_timeout: float = 10.0) -> None:
        """Opens the journal in the folder and makes it if it is not there. `busy_timeout` is how
        long to wait for others that write, in seconds."""
        self._database = Database(folder, _SCHEMA, SCHEMA_VERSION, busy_timeout)

    def __enter__(self) -> Journal:
        return self

    def __exit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Closes the connection."""
        self._database.close()

    @property
    def path(self) -> Path:
        """Returns the file of the journal. Another one means that it was found broken."""
        return self._database.path

    def check(self) -> None:
        """Reads the whole journal. Raises JournalBroken if it is damaged."""
        self._database.check()

    def replace_broken(self) -> None:
        """Goes on with a new file; the broken one is kept."""
        self._database.replace_broken()

    def _next_revision(self) -> int:
        (row,) = self._database.rows("UPDATE facts SET value = CAST(value AS INTEGER) + 1"
                                     " WHERE name = 'revision' RETURNING value")
        return int(row[0])

    def _update(self, job_id: str, condition: str = "", **values: Any) -> bool:
        """Sets columns of a job and its revision, in a transaction; returns whether it was
        there."""
        values["revision"] = self._next_revision()
        columns = ", ".join(f"{name} = :{name}" for name in values)
        return bool(self._database.rows(
            f"UPDATE jobs SET {columns} WHERE id = :id {condition} RETURNING 1",
            {**values, "id": job_id}))

    # Orders

    def submit(self, order: JobOrder, asked_by: str, job_id: str | None = None) -> Job:
        """Writes down a new job and returns it. An id that is there gives the job that has it,
        unchanged. If the device has a job already, the new one is refused."""
        job_id = new_job_id() if job_id is None else check_job_id(job_id)
        with self._database.writing():
            if (known := self.find(job_id)) is not None:
                return known
            busy = self._database.rows("SELECT id FROM jobs WHERE device = ?"
                                       " AND state IN ('queued', 'running')", (order.device,))
            state = JobState.REFUSED if busy else JobState.QUEUED
            reason = f"the device has a job already: {busy[0]['id']}" if busy else ""
            now = time.time()
            self._insert(Job(job_id, order, state, asked_by, 0, now,
                             ended_at=now if busy else None, reason=reason))
            return self.job(job_id)

    def _insert(self, job: Job) -> None:
        values = {**job.as_dict(), "device": job.device,
                  "order": json.dumps(dataclasses.asdict(job.order)),
                  "revision": self._next_revision()}
        self._database.rows(
            f"INSERT INTO jobs ({', '.join(map(_quoted, values))})"
            f" VALUES ({', '.join(f':{name}' for name in values)})", values)

    def cancel(self, job_id: str, asked_by: str) -> Job:
        """Orders the end of a job and returns it. One in the queue ends at once, a running one by
        the supervisor; one that has ended stays as it is. Raises KeyError without such a job."""
        with self._database.writing():
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
        rows = self._database.rows("SELECT * FROM jobs WHERE id = ?", (job_id,))
        return _job(rows[0]) if rows else None

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
        rows = self._database.rows(
            f"SELECT * FROM jobs WHERE {' AND '.join(conditions)}"
            " ORDER BY rowid DESC LIMIT ?", (*values, -1 if limit is None else limit))
        return [_job(row) for row in rows]

    def ended_between(self, since: float, until: float) -> list[Job]:
        """Returns the jobs that ended in this time, in seconds since 1970-01-01, UTC."""
        rows = self._database.rows("SELECT * FROM jobs WHERE ended_at >= ? AND ended_at < ?"
                                   " ORDER BY ended_at", (since, until))
        return [_job(row) for row in rows]

    def revision(self) -> int:
        """Returns the revision of the latest change."""
        return int(self.fact("revision") or 0)

    def changes_since(self, revision: int) -> list[Job]:
        """Returns the jobs that have changed after this revision, the latest change last. The
        revision of the last one is where to go on; 0 is the beginning."""
        rows = self._database.rows("SELECT * FROM jobs WHERE revision > ? ORDER BY revision",
                                   (revision,))
        return [_job(row) for row in rows]

    # What a supervisor writes

    def restore_record(self, job: Job) -> None:
        """Writes down a job that a journal had which is broken now."""
        with self._database.writing():
            if self.find(job.id) is None:
                self._insert(job)

    def claim(self, job_id: str) -> Job | None:
        """Takes a job out of the queue, to start it, and returns it; None if it was not there. This
        works only once for each job."""
        with self._database.writing():
            claimed = self._update(job_id, "AND state = 'queued'", state=JobState.RUNNING,
                                   started_at=time.time(), clock=time.monotonic())
            return self.job(job_id) if claimed else None

    def record_process(self, job_id: str, process: ProcessIdentity) -> None:
        """Writes down the tool's process."""
        with self._database.writing():
            self._update(job_id, pid=process.pid, created=process.created)

    def record_progress(self, progress: Iterable[tuple[str, RestoreProgress, float]]) -> None:
        """Writes down how far jobs are, and for how many seconds they have run."""
        with self._database.writing():
            for job_id, state, seconds in progress:
                self._update(job_id, "AND state = 'running'", operation=state.operation,
                             step=state.step, progress=state.progress, seconds=seconds)

    def record_verdict(self, job_id: str, state: JobState, reason: str) -> None:
        """Writes down how a job will end, before its process is ended."""
        with self._database.writing():
            self._update(job_id, "AND state = 'running'", verdict=state, reason=reason)

    def record_end(self, job: Job) -> None:
        """Writes down how a job ended, unless that has been done."""
        with self._database.writing():
            self._update(job.id, "AND state IN ('queued', 'running')", state=job.state,
                         reason=job.reason, ended_at=job.ended_at, exit_status=job.exit_status,
                         seconds=job.seconds, operation=job.operation, step=job.step,
                         progress=job.progress)

    def running(self) -> list[RunningJob]:
        """Returns the jobs that were claimed and have not ended."""
        rows = self._database.rows("SELECT * FROM jobs WHERE state = 'running' ORDER BY rowid")
        return [_running_job(row) for row in rows]

    # Orders from elsewhere

    def receive(self, order_id: str, payload: bytes) -> ReceivedOrder:
        """Writes down an order and returns it. An id that is there gives the order that has it,
        unchanged."""
        with self._database.writing():
            self._database.rows("INSERT OR IGNORE INTO orders (id, payload, received_at)"
                                " VALUES (?, ?, ?)", (order_id, payload, time.time()))
            return self._orders("id = ?", order_id)[0]

    def answer(self, order_id: str, answer: str) -> None:
        """Writes down the answer to an order, unless it has one."""
        with self._database.writing():
            self._database.rows("UPDATE orders SET answer = ? WHERE id = ? AND answer IS NULL",
                                (answer, order_id))

    def record_delivery(self, order_id: str) -> None:
        """Writes down that the answer to an order has been delivered."""
        with self._database.writing():
            self._database.rows("UPDATE orders SET is_delivered = 1 WHERE id = ?", (order_id,))

    def unanswered(self) -> list[ReceivedOrder]:
        """Returns the orders without an answer, in the order in which they came."""
        return self._orders("answer IS NULL")

    def undelivered(self) -> list[ReceivedOrder]:
        """Returns the orders with an answer that was not delivered."""
        return self._orders("answer IS NOT NULL AND NOT is_delivered")

    def forget_orders(self, before: float) -> None:
        """Removes the orders that were answered and came before this time."""
        with self._database.writing():
            self._database.rows("DELETE FROM orders WHERE answer IS NOT NULL AND received_at < ?",
                                (before,))

    def _orders(self, condition: str, *values: str) -> list[ReceivedOrder]:
        rows = self._database.rows(f"SELECT * FROM orders WHERE {condition} ORDER BY rowid", values)
        return [ReceivedOrder(row["id"], row["payload"], row["received_at"], row["answer"],
                              bool(row["is_delivered"])) for row in rows]

    # Facts

    def state(self) -> object:
        """Returns a value that is another one when anything was written, here or elsewhere."""
        return self._database.state()

    def data_version(self) -> int:
        """Returns a number that changes when another connection has written."""
        return int(self._database.rows("PRAGMA data_version")[0][0])

    def fact(self, name: str) -> str | None:
        """Returns what was written down under this name."""
        rows = self._database.rows("SELECT value FROM facts WHERE name = ?", (name,))
        return str(rows[0][0]) if rows else None

    def set_fact(self, name: str, value: str) -> None:
        """Writes something down under a name."""
        with self._database.writing():
            self._database.rows("INSERT OR REPLACE INTO facts VALUES (?, ?)", (name, value))

    def supervisor(self) -> ProcessIdentity | None:
        """Returns the latest supervisor, which may have ended."""
        value = self.fact("supervisor")
        return None if value is None else ProcessIdentity(*json.loads(value))

    def record_supervisor(self, process: ProcessIdentity) -> None:
        """Writes down who supervises the jobs."""
        self.set_fact("supervisor", json.dumps([process.pid, process.created]))


def _quoted(name: str) -> str:
    return f'"{name}"'


def _job(row: sqlite3.Row) -> Job:
    names = {field.name for field in dataclasses.fields(Job)} - {"order", "state"}
    return Job(order=JobOrder(**json.loads(row["order"])), state=JobState(row["state"]),
               **{name: row[name] for name in names})


def _running_job(row: sqlite3.Row) -> RunningJob:
    process = None if row["pid"] is None else ProcessIdentity(row["pid"], row["created"])
    verdict = None if row["verdict"] is None else (JobState(row["verdict"]), str(row["reason"]))
    return RunningJob(_job(row), process, row["clock"], verdict)
