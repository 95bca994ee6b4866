"""What is in each slot of a bench: the rows of its wall."""

from __future__ import annotations

import time
from collections.abc import Mapping
from dataclasses import replace

from rich.console import RenderableType

from qnrescue.bench import display
from qnrescue.bench.display import Look, Row, line_of, row_of
from qnrescue.bench.slots import Slots
from qnrescue.bench.visits import Phase, Visit
from qnrescue.events import DeviceInfo
from qnrescue.jobs import Job, JobState

# A slot, by its location id, or a device without one, by its ECID.
_Place = int | str


class Wall:
    """The slots, and the devices that are or were in them. A slot shows the last device until the
    next one arrives: a device that was restored boots and leaves the list, but not its slot."""

    def __init__(self, slots: Slots, restores: bool) -> None:
        self._slots = slots
        self._restores = restores
        self._places: dict[_Place, str] = {location: "" for location in slots.names}
        self._jobs: dict[str, Job] = {}  # the latest of each device
        self._news: dict[str, object] = {}
        self._arrived: set[str] = set()
        self.devices: dict[str, DeviceInfo] = {}

    def note_device(self, info: DeviceInfo) -> None:
        """Takes over what a device is."""
        self.devices[info.ecid] = info
        if info.ecid in self._arrived:
            self.note_arrival(info.ecid)

    def note_arrival(self, device: str) -> None:
        """Puts the device into its slot."""
        info = self.devices.get(device)
        here = (info.location_id if info else 0) or device
        for place, there in list(self._places.items()):
            if there == device and place != here:
                self._clear(place)
        self._places[here] = device
        self._arrived.add(device)

    def note_departure(self, device: str) -> None:
        """Notes that the device has gone; what became of it stays to be seen."""
        self._arrived.discard(device)
        if self._places.get(device) == device:
            self._clear(device)

    def _clear(self, place: _Place) -> None:
        if place in self._slots.names:
            self._places[place] = ""
        else:
            del self._places[place]

    def note_job(self, job: Job) -> bool:
        """Takes over a job as it is now; returns whether that is worth a line."""
        known = self._jobs.get(job.device)
        if known is None or known.id == job.id or job.state is not JobState.REFUSED:
            self._jobs[job.device] = job
        row = row_of(job)
        news = job.id, row.look, row.text
        is_new = self._news.get(job.device) != news
        self._news[job.device] = news
        return is_new

    def slot_of(self, device: str) -> str:
        """Returns the name of the slot of the device; empty if it is not known."""
        info = self.devices.get(device)
        return self._slots.name_of(info.location_id) if info and info.location_id else ""

    def facts(self, device: str) -> dict[str, object]:
        """Returns what is known of the device."""
        info = self.devices.get(device)
        return {"ecid": device, "slot": self.slot_of(device),
                "serial_number": info.serial_number if info else None,
                "location_id": f"{info.location_id:08X}" if info else None,
                "product": info.product_string if info else None}

    def line_of(self, job: Job) -> str:
        """Returns a line about the job."""
        return line_of(row_of(job, self.slot_of(job.device)))

    def rows(self, visits: Mapping[str, Visit]) -> list[Row]:
        """Returns a row for each slot, named ones first, and for devices that are in none."""
        named = [each for each in self._places if each in self._slots.names]
        others = sorted((each for each in self._places if each not in self._slots.names), key=str)
        return [self._row(place, visits.get(self._places[place])) for place in [*named, *others]]

    def _row(self, place: _Place, visit: Visit | None) -> Row:
        slot = self._slots.name_of(place) if isinstance(place, int) else ""
        device = self._places[place]
        info = self.devices.get(device)
        serial = (info.serial_number if info else "") or ""
        job = self._jobs.get(device)
        if visit is None:
            if job is None:
                return Row(slot)
            row = row_of(job, slot, serial)
            return replace(row, text=", ".join(filter(None, [row.text, "gone"])))
        if job is not None and (not self._restores or visit.phase in (Phase.ORDERED, Phase.DONE)):
            row = row_of(job, slot, serial)
            return replace(row, text=visit.note or row.text)
        look = Look.WAITING if self._restores else Look.ATTACHED
        again = f"again, after: {job.reason}" if job is not None and visit.repeats else ""
        return Row(slot, look, device, serial, visit.note or again)

    def best_height(self, visits: Mapping[str, Visit]) -> int:
        """Returns how many lines the wall needs at its largest."""
        return display.best_height(len(self.rows(visits)))

    def screen(self, visits: Mapping[str, Visit], bundle: str, message: str, width: int,
               height: int) -> RenderableType:
        """Returns the wall for a terminal of this size."""
        rows = self.rows(visits)
        counts = {look: sum(row.look is look for row in rows) for look in Look}
        parts = [bundle or "nothing is restored",
                 *(f"{count} {look.word}" for look, count in counts.items() if count),
                 time.strftime("%H:%M")]
        return display.wall(rows, "   ".join(parts), message, width, height)
