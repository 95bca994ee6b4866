"""What is known of the stations, and the tiles that show it: no process, clock or thread."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from dataclasses import dataclass, field, replace
from typing import Any, TypeVar

from qnrescue.jobs import Job, JobState

# A job that ended so long before its device arrived belongs to an earlier visit, in seconds: a
# device also leaves for a moment when it restarts.
_VISIT_SECONDS = 60.0
# How long a device that has gone and was in no slot is still shown, in seconds.
_GONE_SECONDS = 3600.0
# How long a job is known after its end, in seconds.
_KNOWN_SECONDS = 24 * 3600.0
# How many jobs, and how many devices, a station may have.
_MOST = 5000
# How much of a step or of a reason a tile has, in characters.
_LONGEST_TEXT = 200


@dataclass(frozen=True)
class Station:
    """A bench. Times are seconds since 1970-01-01, UTC."""

    name: str
    online: bool = True
    heard: float | None = None  # when it was heard of last, if it is offline
    slots: tuple[str, ...] = ()  # their names, in the order of the bench
    bundles: tuple[str, ...] = ()  # the names of those that can be ordered
    may_erase: bool = False
    note: str = ""  # what is wrong, for people

    def seen(self, online: bool, heard: float | None) -> Station:
        """Returns the station as it is reached now."""
        return replace(self, online=online, heard=heard)


@dataclass(frozen=True)
class Device:
    """A device that is attached."""

    ecid: str
    slot: str = ""  # empty: none is known
    serial_number: str = ""
    product: str = ""
    since: float = 0.0  # when it arrived


@dataclass
class _Known:
    station: Station
    devices: dict[str, Device] = field(default_factory=dict)
    serials: dict[str, str] = field(default_factory=dict)  # also of devices that have gone
    jobs: dict[str, Job] = field(default_factory=dict)


class Board:
    """The stations with their devices and jobs, for one thread."""

    def __init__(self) -> None:
        self._known: dict[str, _Known] = {}
        self.notice = ""  # what is wrong with the source, for people

    def set_station(self, station: Station) -> None:
        """Takes over what a station is now."""
        if station.name in self._known:
            self._known[station.name].station = station
        else:
            self._known[station.name] = _Known(station)

    def remove_station(self, name: str) -> None:
        """Forgets a station."""
        self._known.pop(name, None)

    def station(self, name: str) -> Station | None:
        """Returns the station; None if it is not known."""
        known = self._known.get(name)
        return known.station if known else None

    def set_device(self, station: str, device: Device) -> None:
        """Takes over an attached device."""
        known = self._of(station)
        _put(known.devices, device.ecid, device)
        if device.serial_number:
            _put(known.serials, device.ecid, device.serial_number)

    def remove_device(self, station: str, ecid: str) -> None:
        """Notes that the device has gone."""
        if station in self._known:
            self._known[station].devices.pop(ecid, None)

    def device(self, station: str, ecid: str) -> Device | None:
        """Returns the device; None if it is not attached."""
        known = self._known.get(station)
        return known.devices.get(ecid) if known else None

    def set_job(self, station: str, job: Job) -> None:
        """Takes over a job as it is now."""
        _put(self._of(station).jobs, job.id, job)

    def remove_job(self, station: str, job_id: str) -> None:
        """Forgets a job."""
        if station in self._known:
            self._known[station].jobs.pop(job_id, None)

    def job(self, station: str, job_id: str) -> Job | None:
        """Returns the job; None if it is not known."""
        known = self._known.get(station)
        return known.jobs.get(job_id) if known else None

    def _of(self, station: str) -> _Known:
        return self._known.setdefault(station, _Known(Station(station, online=False)))

    def view(self, now: float) -> dict[str, dict[str, Any]]:
        """Returns the stations by name as values for JSON: `head`, and `tiles` by their keys, in
        order. Forgets jobs that ended a day ago."""
        for known in self._known.values():
            known.jobs = {job.id: job for job in known.jobs.values()
                          if job.ended_at is None or now - job.ended_at < _KNOWN_SECONDS}
        return {name: {"head": _head(self._known[name].station),
                       "tiles": {tile["key"]: tile for tile in _tiles(self._known[name], now)}}
                for name in sorted(self._known)}

    def job_value(self, station: str, job: Job) -> dict[str, Any]:
        """Returns the job as a value for JSON."""
        order = job.order
        return {"id": job.id, "station": station, "device": job.device, "slot": order.slot,
                "serial": self._known[station].serials.get(job.device, ""),
                "bundle": _last_part(order.bundle or order.plist), "erase": order.erase,
                "look": job.state.value, "step": job.step, "progress": job.progress,
                "reason": job.reason, "seconds": job.seconds, "exit_status": job.exit_status,
                "ordered": job.ordered_at, "started": job.started_at, "ended": job.ended_at,
                "asked_by": job.asked_by, "cancel_asked_by": job.cancel_asked_by}


_Value = TypeVar("_Value")


def _put(values: dict[str, _Value], key: str, value: _Value) -> None:
    """Adds the value; if there are too many then, the oldest one goes."""
    values[key] = value
    if len(values) > _MOST:
        del values[next(iter(values))]


def _last_part(path: str) -> str:
    return path.replace("\\", "/").rpartition("/")[2]


def _head(station: Station) -> dict[str, Any]:
    return {"name": station.name, "online": station.online, "heard": station.heard,
            "bundles": list(station.bundles), "may_erase": station.may_erase,
            "note": station.note}


def _tiles(known: _Known, now: float) -> Iterable[dict[str, Any]]:
    """Yields a tile for each slot, in order, and one for each device that is in none of them. A
    slot shows the last device until the next one arrives: a device that was restored boots and
    leaves the list, but not its slot."""
    latest = _latest_jobs(known.jobs.values())
    device: Device | None
    job: Job | None
    in_slots = {device.slot: device for device in known.devices.values() if device.slot}
    shown: set[str] = set()
    for slot in known.station.slots:
        device = in_slots.get(slot)
        job = latest.get(device.ecid) if device else _last_in(slot, known.devices, latest)
        shown |= {device.ecid} if device else {job.device} if job else set()
        yield _tile(known.serials, f"slot:{slot}", slot, device, job)
    for ecid in sorted({*known.devices, *latest} - shown):
        device, job = known.devices.get(ecid), latest.get(ecid)
        if device or (job and _is_shown(job, known.station, now)):
            slot = device.slot if device else job.order.slot if job else ""
            yield _tile(known.serials, f"device:{ecid}", slot, device, job)


def _latest_jobs(jobs: Iterable[Job]) -> dict[str, Job]:
    """Returns the job of each device that is shown, the newest last: one that was refused hides
    none before it."""
    found: dict[str, Job] = {}
    for job in sorted(jobs, key=lambda job: job.ordered_at):
        if job.state is not JobState.REFUSED or job.device not in found:
            found.pop(job.device, None)
            found[job.device] = job
    return found


def _last_in(slot: str, devices: Mapping[str, Device], latest: Mapping[str, Job]) -> Job | None:
    there = [job for job in latest.values()
             if job.order.slot == slot and job.device not in devices]
    return there[-1] if there else None


def _is_shown(job: Job, station: Station, now: float) -> bool:
    """Returns whether a job has a tile whose device is neither there nor the last one in its
    slot."""
    return not job.state.is_end or (job.order.slot not in station.slots
                                    and now - (job.ended_at or 0.0) < _GONE_SECONDS)


def _tile(serials: Mapping[str, str], key: str, slot: str, device: Device | None,
          job: Job | None) -> dict[str, Any]:
    if device and job and job.state.is_end \
            and device.since - (job.ended_at or 0.0) > _VISIT_SECONDS:
        job = None
    ecid = device.ecid if device else job.device if job else ""
    tile = {"key": key, "slot": slot, "device": ecid, "serial": serials.get(ecid, ""),
            "product": device.product if device else "", "attached": device is not None,
            "look": "attached" if device else "empty", "job": "", "text": "", "progress": None,
            "started": None, "seconds": None}
    if job:
        has_started = job.started_at is not None
        tile |= {"look": job.state.value, "job": job.id,
                 "text": (job.reason if job.state.is_end else job.step)[:_LONGEST_TEXT],
                 "progress": job.progress if has_started else None,
                 "started": None if job.state.is_end else job.started_at,
                 "seconds": job.seconds if has_started else None}
        if job.state is JobState.RUNNING:
            tile["seconds"] = None  # the page counts from `started`
    return tile
