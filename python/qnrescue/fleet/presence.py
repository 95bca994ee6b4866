"""Which devices are at the station. It is a fact in the journal, so that the next program goes on
with it."""

from __future__ import annotations

import json
import time
from collections.abc import Collection, Mapping
from typing import Any

from qnrescue.bench.slots import Slots
from qnrescue.events import DeviceInfo
from qnrescue.fleet.messages import encode
from qnrescue.journal import Journal

# Where the journal has the devices.
_FACT = "fleet devices"
# How long a device is away before it counts as gone, in seconds: one that restarts leaves the list.
AWAY_SECONDS = 30.0


class Presence:
    """The devices of the station. One that is gone stays until `forget`."""

    def __init__(self, journal: Journal) -> None:
        self._journal = journal
        self._attached: Collection[str] = ()
        self._seen: dict[str, float] = {}  # by the monotonic clock
        self._devices: dict[str, dict[str, Any]] = json.loads(journal.fact(_FACT) or "{}")

    @property
    def slots(self) -> dict[str, str]:
        """Returns the slots of the devices that are at the station, also if they are away for a
        moment; a slot that is not known is an empty text."""
        return {ecid: str(device["slot"]) for ecid, device in self._devices.items()
                if not device["gone"]}

    def note(self, attached: Collection[str], infos: Mapping[str, DeviceInfo], slots: Slots,
             active: Collection[str]) -> None:
        """Takes over a look at the devices. `active` are those with a job. Raises JournalError."""
        self._attached = attached
        now = time.monotonic()
        devices = {ecid: dict(device) for ecid, device in self._devices.items()}
        for ecid in attached:
            if ecid not in devices or devices[ecid]["gone"]:
                devices[ecid] = {"serial_number": "", "product": "", "slot": "",
                                 "since": time.time(), "gone": False}
        for ecid, info in infos.items():
            if ecid in devices:
                devices[ecid] |= _properties(info, slots)
        for ecid, device in devices.items():
            if ecid in attached or ecid in active:
                self._seen[ecid] = now
            elif now - self._seen.setdefault(ecid, now) >= AWAY_SECONDS:
                device["gone"] = True
        self._store(devices)

    def forget(self, ecid: str) -> None:
        """Removes a device that is gone. Raises JournalError."""
        if ecid in self._devices and self._devices[ecid]["gone"]:
            self._seen.pop(ecid, None)
            self._store({each: device for each, device in self._devices.items() if each != ecid})

    def _store(self, devices: dict[str, dict[str, Any]]) -> None:
        if devices != self._devices:
            self._journal.set_fact(_FACT, json.dumps(devices))
            self._devices = devices

    def messages(self, active: Mapping[str, str]) -> dict[str, str]:
        """Returns what is to be published of each device; an empty text if it is gone. `active` are
        the jobs by device."""
        return {ecid: "" if device["gone"] else self._message(ecid, device, active.get(ecid, ""))
                for ecid, device in self._devices.items()}

    def _message(self, ecid: str, device: Mapping[str, Any], job: str) -> str:
        state = "restoring" if job else "attached" if ecid in self._attached else "away"
        shown = {name: value for name, value in device.items() if name != "gone"}
        return encode({"ecid": ecid, "state": state, "job": job, **shown})


def _properties(info: DeviceInfo, slots: Slots) -> dict[str, str]:
    return {"serial_number": info.serial_number or "", "product": info.product_string or "",
            "slot": slots.name_of(info.location_id) if info.location_id else ""}
