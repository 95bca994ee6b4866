"""The bridge between a bench and its fleet. It has no state that outlives it: the journal has the
orders and the jobs, a supervisor restores, and after each connection everything is published anew.
"""

from __future__ import annotations

import functools
import math
import time
from collections.abc import Callable, Sequence
from concurrent.futures import Future, ThreadPoolExecutor
from pathlib import Path
from typing import Any, Protocol

from qnrescue.bench.findings import Finding
from qnrescue.bench.polling import Poll
from qnrescue.bench.slots import Slots
from qnrescue.desk import Desk
from qnrescue.fleet.clerk import Clerk
from qnrescue.fleet.messages import (ONLINE, REFRESH_SECONDS, answer_message, encode, job_message,
                                     station_value)
from qnrescue.fleet.orders import LONGEST_PAYLOAD
from qnrescue.fleet.presence import Presence
from qnrescue.fleet.settings import Settings
from qnrescue.fleet.topics import Topics, check_order_id
from qnrescue.jobs import Job, JobState
from qnrescue.supervisor import ensure_supervisor

_DAY = 86400.0
# How often the station is published at least, jobs are let go, and a supervisor is ensured, in
# seconds.
_MINUTE = 60.0
# How often to look whether something has changed at the station, in seconds.
_LOOK_SECONDS = 5.0
# How often the doctor looks, in seconds.
_DOCTOR_SECONDS = 3600.0
# How long after the connection the broker still sends what it has kept, in seconds.
_KEPT_SECONDS = 30.0


class Line(Protocol):
    """What the bridge needs of a connection."""

    def subscribe(self, filters: Sequence[str]) -> None:
        """Asks for the messages of these topics."""

    def unsubscribe(self, filters: Sequence[str]) -> None:
        """Ends the subscription."""

    def publish(self, topic: str, payload: str, *, retain: bool,
                then: Callable[[], None] | None = None) -> None:
        """Sends a message, and calls `then` when the broker has it."""


class Bridge:
    """The station in its fleet, for one thread."""

    def __init__(self, desk: Desk, settings: Settings, clerk: Clerk, slots: Slots,
                 examine: Callable[[], list[Finding]], pool: ThreadPoolExecutor) -> None:
        """Takes over what the journal has. `examine` returns what the doctor finds; the pool calls
        it."""
        self._desk = desk
        self._settings = settings
        self._clerk = clerk
        self._slots = slots
        self._examine = examine
        self._pool = pool
        self._topics = Topics(settings.station)
        self._presence = Presence(desk.journal)
        self._is_listed = False
        self._fault = ""  # why the devices are not known
        self._findings: list[Finding] | None = None
        self._examination: Future[list[Finding]] | None = None
        self._examined_at = 0.0
        self._ensured_at = 0.0
        self._is_waiting = False  # whether there are orders that have no answer yet
        self.leave()

    # The connection

    def leave(self) -> None:
        """Takes note that there is no connection."""
        self._line: Line | None = None
        self._state: object = None  # of the journal, when it was read last
        self._file: Path | None = None  # of the journal whose jobs were published
        self._revision = 0
        self._devices: dict[str, str] = {}  # what was published of each
        self._answers: set[str] = set()  # that are under way, by order
        self._replies: list[tuple[str, str, bool]] = []  # topic, payload, whether it is kept
        self._emptied: set[str] = set()  # jobs that are too old
        self._station: dict[str, Any] = {}  # what was published of it
        self._station_at = self._looked_at = self._swept_at = 0.0
        self._published_at = math.inf
        self._reads_kept = False

    def enter(self, line: Line) -> None:
        """Publishes everything on a new connection, after `leave`. Raises JournalError."""
        self._line = line
        self._entered_at = time.monotonic()
        self._reads_kept = True
        line.subscribe([self._topics.orders, *self._topics.kept])
        self._publish()
        self._publish_availability()

    def receive(self, topic: str, payload: bytes, was_kept: bool) -> None:
        """Takes over a message. Raises JournalError; then it has to come again."""
        order_id = self._topics.order_id(topic)
        if order_id is not None:
            self._receive_order(order_id, payload)
        elif was_kept and payload and self._is_stale(topic):
            self._replies.append((topic, "", True))

    def _receive_order(self, order_id: str, payload: bytes) -> None:
        try:
            check_order_id(order_id)
        except ValueError as fault:
            self._reply(order_id, answer_message(order_id, str(fault)))
            return
        # What is too long is refused anyway.
        received = self._desk.journal.receive(order_id, payload[:LONGEST_PAYLOAD + 1])
        if received.payload != payload[:LONGEST_PAYLOAD + 1]:
            self._reply(order_id, answer_message(order_id, "another order has this id"))
        elif received.answer is not None:
            self._reply(order_id, received.answer)

    def _reply(self, order_id: str, answer: str) -> None:
        self._replies.append((self._topics.answer(order_id), answer, False))

    def _is_stale(self, topic: str) -> bool:
        """Returns whether what the broker has kept is not true any more."""
        known = {self._topics.device(ecid) for ecid in self._presence.slots}
        if topic in known:
            return False
        job_id = topic.removeprefix(self._topics.job(""))
        job = self._desk.journal.find(job_id) if job_id != topic else None
        return job is None or self._is_old(job)

    # The course of things

    def step(self, poll: Poll | None) -> None:
        """Does what there is to do now. Raises JournalError: then the next call goes on."""
        state = self._desk.journal.state()  # before it is read, so that nothing is missed
        has_news = poll is not None or state != self._state or bool(self._replies)
        if poll is not None:
            self._note(poll)
        if has_news or self._is_waiting:
            self._is_waiting = self._clerk.step(
                self._presence.slots if self._is_listed else None, self._fault)
        self._look_after()
        if self._line is not None:
            self._publish(has_news)
        self._state = state

    def _note(self, poll: Poll) -> None:
        if poll.fault != self._fault:
            self._fault = poll.fault
            self._looked_at = 0.0
        self._is_listed = poll.attached is not None
        if poll.attached is not None:
            self._presence.note(poll.attached, poll.infos, self._slots, self._active())

    def _active(self) -> dict[str, str]:
        jobs = self._desk.journal.jobs(JobState.QUEUED, JobState.RUNNING)
        return {job.device: job.id for job in jobs}

    def _look_after(self) -> None:
        now = time.monotonic()
        if not self._examined_at or now - self._examined_at >= _DOCTOR_SECONDS:
            self._examined_at = now
            self._examination = self._pool.submit(self._examine)
        if not self._ensured_at or now - self._ensured_at >= _MINUTE:
            self._ensured_at = now
            self._desk.journal.forget_orders(
                time.time() - self._settings.job_days * _DAY - self._settings.longest_validity)
            if self._active():
                ensure_supervisor(self._desk.folder)

    # What is published

    def _publish(self, has_news: bool = True) -> None:
        if time.monotonic() - self._published_at >= REFRESH_SECONDS:
            self._publish_again()
            has_news = True
        if has_news:
            self._publish_jobs()
            self._publish_devices()
            self._publish_answers()
        self._publish_station()
        now = time.monotonic()
        if self._reads_kept and now - self._entered_at >= _KEPT_SECONDS and self._line is not None:
            self._reads_kept = False
            self._line.unsubscribe(self._topics.kept)

    def _publish_again(self) -> None:
        """Publishes what the broker keeps, for those who joined later: not every broker sends it to
        them. Jobs that ended earlier than a day ago are left out."""
        for job in self._jobs_since(time.time() - _DAY):
            self._send(self._topics.job(job.id), job_message(job))
        self._devices.clear()
        self._publish_availability()

    def _publish_availability(self) -> None:
        self._published_at = time.monotonic()
        self._send(self._topics.availability, ONLINE)

    def _jobs_since(self, earliest: float) -> list[Job]:
        """Returns the jobs that are under way, and those that ended since then."""
        journal = self._desk.journal
        return journal.jobs(JobState.QUEUED, JobState.RUNNING) \
            + journal.ended_between(earliest, math.inf)

    def _publish_jobs(self) -> None:
        journal = self._desk.journal
        if journal.path != self._file:  # the other one was found broken, or the connection is new
            self._file, self._revision = journal.path, journal.revision()
            jobs = self._jobs_since(self._oldest())
        else:
            jobs = journal.changes_since(self._revision)
        for job in jobs:
            self._revision = max(self._revision, job.revision)
            if not self._is_old(job):
                self._send(self._topics.job(job.id), job_message(job))
        now = time.monotonic()
        if not self._swept_at or now - self._swept_at >= _MINUTE:
            self._swept_at = now
            self._empty_old_jobs()

    def _empty_old_jobs(self) -> None:
        # Those that ended even earlier were emptied in a connection before.
        for job in self._desk.journal.ended_between(self._oldest(2), self._oldest()):
            if job.id not in self._emptied:
                self._emptied.add(job.id)
                self._send(self._topics.job(job.id), "")

    def _oldest(self, times: int = 1) -> float:
        """Returns the time before which jobs that have ended are not published."""
        return time.time() - times * self._settings.job_days * _DAY

    def _is_old(self, job: Job) -> bool:
        return job.ended_at is not None and job.ended_at < self._oldest()

    def _publish_devices(self) -> None:
        for ecid, message in self._presence.messages(self._active()).items():
            if self._devices.get(ecid) != message:
                self._devices[ecid] = message
                self._send(self._topics.device(ecid), message,
                           None if message else functools.partial(self._forget, ecid))

    def _forget(self, ecid: str) -> None:
        self._presence.forget(ecid)
        self._devices.pop(ecid, None)

    def _publish_answers(self) -> None:
        journal = self._desk.journal
        for order in journal.undelivered():
            if order.id not in self._answers and order.answer is not None:
                self._answers.add(order.id)
                self._send(self._topics.answer(order.id), order.answer,
                           functools.partial(journal.record_delivery, order.id), retain=False)
        for topic, payload, retain in self._replies:
            self._send(topic, payload, retain=retain)
        self._replies.clear()

    def _publish_station(self) -> None:
        now = time.monotonic()
        has_news = self._take_findings()
        if not has_news and self._looked_at and now - self._looked_at < _LOOK_SECONDS:
            return
        self._looked_at = now
        value = station_value(self._settings, self._slots, self._findings, self._fault)
        if value != self._station or now - self._station_at >= _MINUTE:
            self._station, self._station_at = value, now
            self._send(self._topics.station, encode({**value, "time": time.time()}))

    def _take_findings(self) -> bool:
        """Takes over what the doctor has found, and returns whether there was something new."""
        if self._examination is None or not self._examination.done():
            return False
        self._findings, self._examination = self._examination.result(), None
        return True

    def _send(self, topic: str, payload: str, then: Callable[[], None] | None = None, *,
              retain: bool = True) -> None:
        assert self._line is not None
        self._line.publish(topic, payload, retain=retain, then=then)
