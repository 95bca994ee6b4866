"""A fleet on a machine: stations, a broker, the lines between them, the screen and an operator."""

from __future__ import annotations

import contextlib
import random
import time
from collections import Counter
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

from mosquitto_of_tests import Client, CutLine, Mosquitto
from screens_of_tests import ScreenProcess, Viewer, faults_of_screen
from stations_of_tests import (BUNDLE, Station, faults_of_broker, faults_of_traces, good_reports,
                               kept_by)

# How long anything may take that has to happen, in seconds.
LIMIT = 180.0
# How long the restores take, in seconds.
_SHORTEST, _LONGEST = 4.0, 7.0


def wait_until(what: str, holds: Callable[[], object]) -> None:
    """Waits until it holds. Raises AssertionError if that takes too long."""
    limit = time.monotonic() + LIMIT
    while not holds():
        if time.monotonic() >= limit:
            raise AssertionError(f"not within {LIMIT:g} s: {what}")
        time.sleep(0.1)


class Fleet:
    """The fleet, for one thread. What is ordered here has to become true everywhere."""

    def __init__(self, folder: Path, tool: Sequence[str], stations: int, slots: int,
                 chance: random.Random, is_long: bool) -> None:
        self.chance = chance
        self.is_long = is_long  # whether there is time for long pauses
        self._ecids = iter(chance.sample(range(1 << 48, 1 << 52), stations * slots + 1000))
        self._orders = 0
        self._answers: dict[tuple[str, str], Counter[str]] = {}  # that have to come, by the order
        self._ends: dict[tuple[str, str], set[str]] = {}  # how jobs may end
        self.broker = Mosquitto.open(folder / "broker")
        self.lines = {f"bench-{number:02}": CutLine(self.broker.port)
                      for number in range(1, stations + 1)}
        self.stations = [Station(folder / name, tool, line.port, slots)
                         for name, line in self.lines.items()]
        self.screen_line = CutLine(self.broker.port)
        self.screen = ScreenProcess(folder / "screen", self.screen_line.port)
        self.viewer = Viewer(self.screen)
        self.operator = Client(self.broker.port)
        for station in self.stations:
            station.start()

    def close(self) -> None:
        """Ends everything."""
        self.screen.close()
        with contextlib.suppress(Exception):  # whatever the broker is like now
            self.operator.close()
        for station in self.stations:
            station.machine.end_processes()
            station.bridge.process.wait()
        for line in (*self.lines.values(), self.screen_line):
            line.close()
        self.broker.kill()

    # Devices

    def plug_in(self, station: Station, seconds: float = 0.0, **more: Any) -> str:
        """Plugs a device in and returns its ECID. A restore of it takes so many seconds."""
        seconds = seconds or self.chance.uniform(_SHORTEST, _LONGEST)
        pauses = [self.chance.uniform(0.2, 0.6) for _ in range(round(seconds / 0.4))]
        ecid = f"{next(self._ecids):016X}"
        station.plug_in({"ECID": ecid, "SerialNumber": f"FLEET{ecid[-7:]}",
                         "RestoreReports": good_reports(pauses), **more})
        return ecid

    def wait_for(self, station: Station, *ecids: str) -> None:
        """Waits until the broker has the devices."""
        wait_until(f"{ecids} at {station.name}", lambda: all(
            self.operator.latest(f"devices/{ecid}", station.name) for ecid in ecids))

    # Orders

    def new_id(self) -> str:
        """Returns an id for an order."""
        self._orders += 1
        return f"order-{self._orders}"

    def order_of(self, device: str, **changes: Any) -> dict[str, Any]:
        """Returns an order to restore the device, with changes; None removes a key."""
        order = {"action": "restore", "device": device, "bundle": BUNDLE,
                 "not_after": time.time() + 600, **changes}
        return {name: value for name, value in order.items() if value is not None}

    def send(self, station: Station, order_id: str, order: dict[str, Any]) -> None:
        """Sends an order."""
        self.operator.order(order_id, order, station.name)

    def expect(self, station: Station, order_id: str, *ends: str, answers: int = 1,
               refusals: int = 0) -> None:
        """Notes how the job of an order may end, without ends that there is none, and how many
        orders with its id are accepted and refused at the least."""
        key = station.name, order_id
        self._answers[key] = Counter(accepted=answers, refused=refusals)
        self._ends[key] = set(ends)

    def begin(self, station: Station, device: str) -> str:
        """Orders a restore that succeeds, and waits until it is under way. Returns its id."""
        order_id = self.new_id()
        self.expect(station, order_id, "succeeded")
        self.send(station, order_id, self.order_of(device))
        wait_until(f"{order_id} is under way", lambda: self.state(station, order_id) == "running")
        return order_id

    def state(self, station: Station, order_id: str) -> str:
        """Returns the state of a job as the operator has heard it; empty if he has not."""
        job = self.operator.latest(f"jobs/{order_id}", station.name)
        return job["state"] if job else ""

    def has_ended(self, station: Station, order_id: str) -> bool:
        """Returns whether the job has ended, as the station knows it."""
        return any(job.id == order_id and job.state.is_end for job in station.jobs())

    # What has to be true

    def settle(self) -> None:
        """Waits until all is as it has to be. Raises AssertionError if it does not become so."""
        limit = time.monotonic() + LIMIT
        while faults := self._faults():
            if time.monotonic() >= limit:
                raise AssertionError("\n".join(faults))
            time.sleep(0.5)

    def _faults(self) -> list[str]:
        faults = [fault for station in self.stations for fault in self._faults_of(station)]
        if faults:
            return faults  # it is too early for the rest
        kept = kept_by(self.broker.port)
        faults += [fault for station in self.stations for fault in faults_of_broker(station, kept)]
        return faults + faults_of_screen(self.stations, self.screen, self.viewer)

    def _faults_of(self, station: Station) -> list[str]:
        states = {job.id: job.state.value for job in station.jobs()}
        faults = []
        for (name, order_id), ends in self._ends.items():
            if name != station.name:
                continue
            state = states.pop(order_id, None)
            if state not in ends if ends else state is not None:
                faults.append(f"{name}: {order_id} is {state}, and not {ends or 'absent'}")
            got = self._answers_to(name, order_id)
            if expected := self._answers[name, order_id] - got:
                faults.append(f"{name}: {order_id} lacks the answers {dict(expected)}")
            if set(got) != set(+self._answers[name, order_id]):
                faults.append(f"{name}: {order_id} has the answers {dict(got)}")
        faults += [f"{station.name}: nobody has ordered {job_id}" for job_id in states]
        return faults + faults_of_traces(station)

    def _answers_to(self, station: str, order_id: str) -> Counter[str]:
        return Counter(answer["answer"] for answer in self.operator.all_of(
            f"answers/{order_id}", station))
