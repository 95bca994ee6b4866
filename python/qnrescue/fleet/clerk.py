"""Takes up the orders that are in the journal: decides on each, and passes it on to the desk.

An order stays in the journal without an answer until all that it needs is known. Whoever takes over
after an end at any instant comes to the same answer: a restore that was ordered is a job with the
id of the order."""

from __future__ import annotations

import time
from collections.abc import Mapping
from concurrent.futures import Future, ThreadPoolExecutor
from pathlib import Path

from qnrescue.desk import Desk
from qnrescue.fleet.digests import Digests
from qnrescue.fleet.messages import answer_message
from qnrescue.fleet.orders import (CANCEL, EXIT_RECOVERY, Order, OrderFault, check_time,
                                   parse_order)
from qnrescue.fleet.settings import Settings
from qnrescue.jobs import Job, JobOrder, JobState
from qnrescue.journal import ReceivedOrder
from qnrescue.tool import Tool, ToolFailure


class NotYet(Exception):
    """Something that is needed for an answer is not known yet."""


class Clerk:
    """Answers the orders of a station."""

    def __init__(self, desk: Desk, settings: Settings, tool: Tool, tool_words: tuple[str, ...],
                 pool: ThreadPoolExecutor) -> None:
        self._desk = desk
        self._settings = settings
        self._tool = tool
        self._tool_words = tool_words
        self._pool = pool
        self._digests = Digests(pool)
        self._exits: dict[str, tuple[str, Future[None]]] = {}  # by order: the device, and the run

    def step(self, slots: Mapping[str, str] | None, fault: str) -> bool:
        """Answers what can be answered, and returns whether something is left. `slots` has the
        devices of the station; None: they are not known, and `fault` is why, or empty if they will
        be. Raises JournalError."""
        is_left = False
        for received in self._desk.journal.unanswered():
            try:
                self._carry_out(received, slots, fault)
                reason = ""
            except (NotYet, OSError):
                # Without a supervisor a job waits in the journal, and is found there.
                is_left = True
                continue
            except OrderFault as refusal:
                reason = str(refusal)
            self._desk.journal.answer(received.id, answer_message(received.id, reason))
            self._exits.pop(received.id, None)
        return is_left

    def _carry_out(self, received: ReceivedOrder, slots: Mapping[str, str] | None,
                   fault: str) -> None:
        asked_by = f"order {received.id} of the fleet"
        if (job := self._desk.journal.find(received.id)) is not None:
            _check_job(job, asked_by)
            return
        order = parse_order(received.payload)
        if order.action == EXIT_RECOVERY and received.id in self._exits:
            self._finish_exit(received.id)
            return
        check_time(order, time.time(), self._settings.longest_validity)
        if order.action == CANCEL:
            self._cancel(order, asked_by)
            return
        slot = self._slot_of(order.device, slots, fault)
        if order.action == EXIT_RECOVERY:
            self._begin_exit(received.id, order.device)
        else:
            self._restore(received.id, order, slot, asked_by)

    def _slot_of(self, device: str, slots: Mapping[str, str] | None, fault: str) -> str:
        if slots is None and not fault:
            raise NotYet
        if slots is None:
            raise OrderFault(fault)
        if device not in slots:
            raise OrderFault("the device is not at this station")
        if any(device == each for each, _ in self._exits.values()):
            raise NotYet
        return slots[device]

    # Restores

    def _restore(self, order_id: str, order: Order, slot: str, asked_by: str) -> None:
        if order.erase and not self._settings.allow_erase:
            raise OrderFault("the settings of the station do not allow erasing")
        path = find_bundle(self._settings.bundles, order.bundle)
        if order.sha256:
            self._check_digest(path, order.sha256)
        job = self._desk.order(
            JobOrder(order.device, str(path), erase=order.erase,
                     enter_restore_mode=order.enter_restore_mode,
                     restore_timeout=order.restore_timeout, tool=self._tool_words, slot=slot,
                     not_after=order.not_after),
            job_id=order_id, asked_by=asked_by)
        _check_job(job, asked_by)

    def _check_digest(self, path: Path, expected: str) -> None:
        if not path.is_file():
            raise OrderFault("the bundle is a folder, which has no SHA-256")
        try:
            found = self._digests.of(path)
        except OSError as fault:
            raise OrderFault(f"the bundle cannot be read: {fault.strerror}") from fault
        if found is None:
            raise NotYet
        if found != expected:
            raise OrderFault(f"the bundle has another SHA-256: {found}")

    # The other actions

    def _cancel(self, order: Order, asked_by: str) -> None:
        job = self._desk.journal.find(order.job)
        if job is None:
            raise OrderFault("there is no such job")
        if job.cancel_asked_by == asked_by:
            return
        if job.state.is_end:
            raise OrderFault(f"the job has ended: {job.state}")
        self._desk.cancel(job.id, asked_by=asked_by)

    def _begin_exit(self, order_id: str, device: str) -> None:
        jobs = self._desk.journal.jobs(JobState.QUEUED, JobState.RUNNING, device=device)
        if jobs:
            raise OrderFault(f"the device has a job: {jobs[0].id}")
        self._exits[order_id] = device, self._pool.submit(self._tool.exit_recovery, device)
        raise NotYet

    def _finish_exit(self, order_id: str) -> None:
        _, run = self._exits[order_id]
        if not run.done():
            raise NotYet
        try:
            run.result()
        except (ToolFailure, OSError) as failure:
            raise OrderFault(str(failure)) from failure


def _check_job(job: Job, asked_by: str) -> None:
    """Raises OrderFault unless the job is the one of this order, and has not been refused."""
    if job.asked_by != asked_by:
        raise OrderFault("another job has this id")
    if job.state is JobState.REFUSED:
        raise OrderFault(job.reason)


def find_bundle(folder: Path, name: str) -> Path:
    """Returns the path of the bundle. Raises OrderFault if the folder itself has no such one."""
    path = folder / name
    try:
        is_there = path.is_file() or path.is_dir()
        if is_there and path.resolve(strict=True).parent == folder.resolve(strict=True):
            return path
    except OSError as fault:
        raise OrderFault(f"the bundle cannot be used: {fault.strerror}") from fault
    raise OrderFault(f"the station has no bundle {name}")
