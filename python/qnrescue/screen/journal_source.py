"""The bench of this machine: its journal, and the devices that the tool lists."""

from __future__ import annotations

import asyncio
import contextlib
import os
import time
from collections import deque
from collections.abc import Iterator, Mapping, Sequence
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

from qnrescue.bench.json_lines import value_of
from qnrescue.bench.polling import Poller
from qnrescue.bench.slots import FILE_NAME, Slots, SlotsFault, read_slots
from qnrescue.database import JournalError
from qnrescue.desk import Desk
from qnrescue.documents import DocumentSplitter
from qnrescue.events import DeviceInfo
from qnrescue.jobs import Job, JobOrder, JobState
from qnrescue.places import BenchFolder
from qnrescue.screen.board import Board, Device, Station
from qnrescue.screen.source import Answer, Papers, RestoreRequest
from qnrescue.steps_file import read_steps
from qnrescue.supervisor import ensure_supervisor
from qnrescue.tool import Tool

# How often to look at the journal, and at the settings, in seconds.
_TICK = 0.25
_SETTINGS_SECONDS = 2.0
# Jobs that ended longer ago are not shown, in seconds.
_SHOWN_SECONDS = 24 * 3600.0
# How many documents of a job are shown.
_DOCUMENTS = 200
_CHUNK = 1 << 16


@dataclass(frozen=True)
class BenchSettings:
    """What the screen needs to know of the bench."""

    name: str
    folder: BenchFolder
    tool: Tool
    tool_words: tuple[str, ...]
    bundles: Path  # the folder with those that can be ordered
    may_erase: bool


class JournalSource:
    """The bench of this machine as the only station."""

    def __init__(self, settings: BenchSettings) -> None:
        self._settings = settings
        self._slots: Mapping[str, str] = {}  # by device

    async def run(self, board: Board) -> None:
        """Keeps the board true until it is cancelled."""
        loop = asyncio.get_running_loop()
        name = self._settings.name
        with ThreadPoolExecutor(1) as thread:  # the journal is for one thread
            watcher = _Watcher(self._settings)
            try:
                while True:
                    news = await loop.run_in_executor(thread, watcher.news)
                    board.set_station(news.station)
                    for job in news.jobs:
                        board.set_job(name, job)
                    for ecid in self._slots.keys() - news.devices.keys():
                        board.remove_device(name, ecid)
                    for device in news.devices.values():
                        board.set_device(name, device)
                    self._slots = {ecid: each.slot for ecid, each in news.devices.items()}
            finally:
                thread.submit(watcher.close)

    async def order(self, station: str, request: RestoreRequest, asked_by: str) -> Answer:
        """Orders a restore."""
        return await asyncio.to_thread(self._order, request, asked_by)

    def _order(self, request: RestoreRequest, asked_by: str) -> Answer:
        settings = self._settings
        if request.bundle not in bundle_names(settings.bundles):
            return Answer(False, "the station has no such bundle")
        order = JobOrder(request.device, str(settings.bundles / request.bundle),
                         erase=request.erase, tool=settings.tool_words,
                         slot=self._slots.get(request.device, ""))
        try:
            with Desk(settings.folder) as desk:
                job = desk.order(order, job_id=request.id, asked_by=asked_by)
        except (JournalError, OSError) as fault:
            return Answer(False, str(fault))
        return Answer(job.state is not JobState.REFUSED, job.reason)

    async def cancel(self, station: str, job_id: str, asked_by: str) -> Answer:
        """Orders the end of a job."""
        return await asyncio.to_thread(self._cancel, job_id, asked_by)

    def _cancel(self, job_id: str, asked_by: str) -> Answer:
        try:
            with Desk(self._settings.folder) as desk:
                job = desk.cancel(job_id, asked_by=asked_by)
        except (JournalError, OSError) as fault:
            return Answer(False, str(fault))
        if job.state.is_end and job.state is not JobState.CANCELLED:
            return Answer(False, f"the job has ended: {job.state.value}")
        return Answer(True)

    async def papers(self, station: str, job_id: str) -> Papers:
        """Returns what is kept about the job."""
        return await asyncio.to_thread(self._papers, job_id)

    def _papers(self, job_id: str) -> Papers:
        files = self._settings.folder.job(job_id)
        count = 0
        latest: deque[bytes] = deque(maxlen=_DOCUMENTS)
        note = ""
        try:
            for document in _documents(files.documents):
                count += 1
                latest.append(document)
        except FileNotFoundError:
            note = "the tool has not been started" if not files.path.exists() else ""
        except OSError as fault:
            note = f"the documents cannot be read: {fault.strerror or fault}"
        return Papers(read_steps(files.steps), [value_of(each) for each in latest],
                      count - len(latest), files.documents if count else None, note)


def _documents(path: Path) -> Iterator[bytes]:
    """Yields the documents that are complete: the last one may be under way."""
    splitter = DocumentSplitter()
    with path.open("rb") as file:
        # What follows the documents up to the end is NULs, if space was reserved.
        while chunk := file.read(_CHUNK).partition(b"\0")[0]:
            yield from splitter.feed(chunk)


def bundle_names(folder: Path) -> tuple[str, ...]:
    """Returns the names of the bundles in the folder; none if it cannot be read."""
    try:
        return tuple(sorted(name for name in os.listdir(folder) if not name.startswith(".")))
    except OSError:
        return ()


@dataclass(frozen=True)
class _News:
    station: Station
    devices: Mapping[str, Device]
    jobs: Sequence[Job]  # those that have changed


class _Watcher:
    """Looks at the journal and at the devices, in one thread."""

    def __init__(self, settings: BenchSettings) -> None:
        self._settings = settings
        self._poller = Poller(settings.tool)
        self._desk: Desk | None = None
        self._journal_file: Path | None = None
        self._revision = 0
        self._under_way: set[str] = set()  # the ids of jobs
        self._arrivals: dict[str, float] = {}
        self._infos: dict[str, DeviceInfo] = {}
        self._slots = Slots()
        self._bundles: tuple[str, ...] = ()
        self._settings_at = float("-inf")
        self._poll_fault = self._journal_fault = self._settings_fault = ""

    def close(self) -> None:
        """Ends the looking."""
        self._poller.stop()
        if self._desk is not None:
            self._desk.close()

    def news(self) -> _News:
        """Waits for a moment and returns what is there and what has changed."""
        self._look_at_devices()
        jobs = self._look_at_journal()
        if time.monotonic() - self._settings_at >= _SETTINGS_SECONDS:
            self._settings_at = time.monotonic()
            self._look_at_settings()
            self._ensure_supervisor()
        faults = (self._poll_fault, self._journal_fault, self._settings_fault)
        station = Station(self._settings.name, slots=tuple(self._slots.names.values()),
                          bundles=self._bundles, may_erase=self._settings.may_erase,
                          note="; ".join(filter(None, faults)))
        return _News(station, {ecid: self._device(ecid) for ecid in self._arrivals}, jobs)

    def _look_at_devices(self) -> None:
        poll = self._poller.next(_TICK)
        if poll is None:
            return
        self._poll_fault = poll.fault
        self._infos.update(poll.infos)
        if poll.attached is not None:
            self._arrivals = {ecid: self._arrivals.get(ecid, time.time())
                              for ecid in poll.attached}

    def _look_at_journal(self) -> list[Job]:
        self._journal_fault = ""
        try:
            if self._desk is None:
                self._desk = Desk(self._settings.folder)
            journal = self._desk.journal
            changed = journal.changes_since(self._revision)
            if journal.path != self._journal_file:  # the other one was found broken
                self._journal_file, self._revision = journal.path, 0
                changed = journal.changes_since(0)
        except (JournalError, OSError) as fault:
            self._journal_fault = f"the journal cannot be used now: {fault}"
            return []
        if changed:
            self._revision = changed[-1].revision
        self._under_way -= {job.id for job in changed}
        self._under_way |= {job.id for job in changed if not job.state.is_end}
        earliest = time.time() - _SHOWN_SECONDS
        return [job for job in changed if (job.ended_at or earliest) >= earliest]

    def _look_at_settings(self) -> None:
        self._bundles = bundle_names(self._settings.bundles)
        self._settings_fault = ""
        try:
            self._slots = read_slots(self._settings.folder.path / FILE_NAME)
        except SlotsFault as fault:
            self._settings_fault = str(fault)

    def _ensure_supervisor(self) -> None:
        if self._under_way:
            with contextlib.suppress(OSError):  # one may look without the right to write
                ensure_supervisor(self._settings.folder)

    def _device(self, ecid: str) -> Device:
        info = self._infos.get(ecid)
        if info is None:
            return Device(ecid, since=self._arrivals[ecid])
        slot = self._slots.name_of(info.location_id) if info.location_id else ""
        return Device(ecid, slot, info.serial_number or "", info.product_string or "",
                      self._arrivals[ecid])
