"""Plans a day at the bench: which device is in which slot, from when to when, and what happens.

The same seed gives the same plan. All times are in seconds since the start of the day."""

from __future__ import annotations

import plistlib
import random
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from machine_of_tests import report

# How often a restore is repeated that failed before the device was changed.
RETRIES = 1
# How long a device may report nothing. No restore that succeeds is silent for so long.
SILENCE = 15
# How long a device stays besides its restore: a busy machine notices it late.
PATIENCE = 20

# The steps as the tool numbers them; at 9 the device boots into restore mode.
_EARLY, _RESTORE_MODE, _LATE = 3, 9, 13


@dataclass(frozen=True)
class Kind:
    """What becomes of a device."""

    name: str
    share: int  # of a hundred devices
    restores: int  # how often the tool has to start a restore
    states: tuple[str, ...]  # how its jobs may end


KINDS = (
    Kind("good", 65, 1, ("succeeded",)),
    Kind("fails early", 10, 1 + RETRIES, ("failed",)),
    Kind("fails late", 10, 1, ("failed",)),
    Kind("hangs", 8, 1, ("hung",)),
    Kind("unplugged", 7, 1, ("hung",)),
)


@dataclass(frozen=True)
class Stay:
    """A device in a slot."""

    ecid: str
    location: int
    kind: Kind
    arrival: float
    departure: float
    reports: list[dict[str, Any]]

    def as_device(self) -> dict[str, Any]:
        """Returns the device for a scenario of the simulator."""
        return {"ECID": self.ecid, "State": "Recovery", "LocationID": self.location,
                "ConnectAfter": self.arrival, "DisconnectAfter": self.departure,
                "SerialNumber": f"DAY{self.ecid[-9:]}", "ProductString": "Gerät größer 名前",
                "RestoreReports": self.reports, "AfterInterruption": 1.0}


def _failure(operation: int) -> dict[str, Any]:
    error = {"$type": "error", "Domain": "AMRestoreErrorDomain", "Code": 1}
    return report(0.5, operation, 0, "Failed", Error=error)


def _reports(kind: Kind, chance: random.Random) -> Iterator[dict[str, Any]]:
    yield report(0.3, _EARLY, 1)
    if kind.name == "fails early":
        yield _failure(_EARLY)
        return
    yield report(0.3, _RESTORE_MODE, 5)
    steps = 60 if kind.name == "unplugged" else chance.randint(3, 8)
    for step in range(steps):
        yield report(chance.uniform(0.2, 1.2), _LATE, 100 * step // steps)
    if kind.name == "good":
        yield report(0.3, 0, 100, "Successful")
    elif kind.name == "fails late":
        yield _failure(_LATE)


def _needed(kind: Kind, reports: list[dict[str, Any]]) -> float:
    """Returns how long the device is needed."""
    if kind.name == "unplugged":
        return 2.0  # the restore takes longer, so that it is under way then
    length = sum(float(report["After"]) for report in reports) * kind.restores
    return length + (SILENCE if kind.name == "hangs" else 0)


def make_plan(seed: int, slots: int, devices: int) -> list[Stay]:
    """Returns the stays: each device comes once, as soon as a slot is free."""
    chance = random.Random(seed)
    ecids = chance.sample(range(1 << 48, 1 << 52), devices)
    free_at = {0x14100000 + 0x10000 * slot: chance.uniform(1, 8) for slot in range(slots)}
    stays: list[Stay] = []
    for ecid, kind in zip(ecids, _kinds(chance, devices)):
        location = min(free_at, key=lambda each: free_at[each])
        reports = list(_reports(kind, chance))
        arrival = free_at[location]
        departure = arrival + PATIENCE + _needed(kind, reports)
        free_at[location] = departure + chance.uniform(1, 4)
        stays.append(Stay(f"{ecid:016X}", location, kind, arrival, departure, reports))
    return stays


def _kinds(chance: random.Random, devices: int) -> list[Kind]:
    """Returns the kinds in random order, each at least once if there are enough devices."""
    kinds = list(KINDS[:devices])
    kinds += chance.choices(KINDS, [kind.share for kind in KINDS], k=devices - len(kinds))
    chance.shuffle(kinds)
    return kinds


def write_scenario(stays: list[Stay], path: Path) -> None:
    """Writes the scenario of the day for the simulator."""
    path.write_bytes(plistlib.dumps({"Devices": [stay.as_device() for stay in stays]}))
