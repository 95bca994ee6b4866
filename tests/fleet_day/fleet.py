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
from qnrescue.tool import last_line
from stations_of_tests import (BUNDLE, Station, faults_of_broker, faults_of_devices,
                               faults_of_traces, good_reports, kept_by)

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
        self.lines: dict[str, CutLine] = {}  # of the stations, by their names
        self.stations: list[Station] = []
        with contextlib.ExitStack() as opened:  # all that is to be closed, also if the rest fails
            self.broker = Mosquitto.open(folder / "broker")
            opened.callback(self.broker.kill)
            self.screen_line = self._new_line(opened)
            self.screen = ScreenProcess(folder / "screen", self.screen_line.port)
            opened.callback(self.screen.close)
            self.viewer = Viewer(self.screen)
            self.operator = Client(self.broker.port)
            opened.callback(self._close_operator)
            for number in range(1, stations + 1):
                name = f"bench-{number:02}"
                self.lines[name] = self._new_line(opened)
                station = Station(folder / name, tool, self.lines[name].port, slots)
                self.stations.append(station)
                opened.callback(station.machine.end_processes)
                station.start()
            self._opened = opened.pop_all()

    def _new_line(self, opened: contextlib.ExitStack) -> CutLine:
        line = CutLine(self.broker.port)
        opened.callback(line.close)
        return line

    def _close_operator(self) -> None:
        with contextlib.suppress(Exception):  # whatever the broker is like now
            self.operator.close()

    def close(self) -> None:
        """Ends everything."""
        self._opened.close()

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
        wait_until(f"{ecids} at {station.name}",
                   lambda: all(self.device(station, ecid) for ecid in ecids))

    def device(self, station: Station, ecid: str) -> dict[str, Any]:
        """Returns the device as the operator has heard of it; empty if it is not there."""
        device: dict[str, Any] | None = self.operator.latest(f"devices/{ecid}", station.name)
        return device or {}

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
        return self.begin_all([(station, device)])[0]

    def begin_all(self, devices: Sequence[tuple[Station, str]]) -> list[str]:
        """Orders restores that succeed, and waits until all are under way. Returns their ids."""
        jobs = {self.new_id(): each for each in devices}
        for order_id, (station, device) in jobs.items():
            self.expect(station, order_id, "succeeded")
            self.send(station, order_id, self.order_of(device))
        for order_id, (station, _) in jobs.items():
            wait_until(f"{order_id} is under way",
                       lambda: self.state(station, order_id) == "running")
        return list(jobs)

    def state(self, station: Station, order_id: str) -> str:
        """Returns the state of a job as the operator has heard it; empty if he has not."""
        job = self.operator.latest(f"jobs/{order_id}", station.name)
        return job["state"] if job else ""

    def has_ended(self, station: Station, order_id: str) -> bool:
        """Returns whether the job has ended, as the station knows it."""
        return any(job.id == order_id and job.state.is_end for job in station.jobs())

    def wait_until_offline(self, station: Station) -> None:
        """Waits until the broker has the last will of the station, and the screen shows it."""
        topic = f"qnrescue/{station.name}/availability"
        wait_until(f"the broker keeps the last will of {station.name}",
                   lambda: kept_by(self.broker.port).get(topic) == b"offline")
        wait_until(f"the screen shows that {station.name} is offline",
                   lambda: station.name not in self.viewer.online())

    def wait_until_screen_is_alone(self) -> None:
        """Waits until the screen says that it has lost the broker, and shows no station as
        online."""
        wait_until("the screen says that it has lost the broker",
                   lambda: self.viewer.notice and not self.viewer.online())

    # What has to be true

    def settle(self) -> None:
        """Waits until all is as it has to be. Raises AssertionError if it does not become so."""
        limit = time.monotonic() + LIMIT
        while faults := self._faults():
            if time.monotonic() >= limit:
                raise AssertionError("\n".join(faults))
            time.sleep(0.5)

    def what_is_wrong(self) -> list[str]:
        """Returns what is not as it has to be now, as far as that can be found out."""
        faults = self._ended()
        with contextlib.suppress(Exception):  # those who are asked may have ended
            faults += self._faults()
        return faults

    def _ended(self) -> list[str]:
        """Returns which processes have ended, with their last words."""
        programs = {"the broker": (self.broker.process, self.broker.folder / "mosquitto.log"),
                    "the screen": (self.screen.process, self.screen.log)}
        programs |= {f"the bridge of {each.name}": (each.bridge.process, each.bridge.log)
                     for each in self.stations}
        return [f"{name} has ended with status {process.returncode}: {last_line(log.read_bytes())}"
                for name, (process, log) in programs.items() if process.poll() is not None]

    def _faults(self) -> list[str]:
        faults = [fault for station in self.stations for fault in self._faults_of(station)]
        if faults:
            return faults  # it is too early for the rest
        kept = kept_by(self.broker.port)
        faults += [fault for station in self.stations for fault in faults_of_broker(station, kept)]
        if not faults:
            faults += [fault for station in self.stations
                       for fault in faults_of_devices(station, kept)]
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
