"""Stations of a fleet with simulated devices, and what is true of them: what the broker has kept
and the traces have to agree with the journals, and with what is plugged in."""

from __future__ import annotations

import contextlib
import json
import os
import shutil
import signal
import subprocess
from collections import Counter
from collections.abc import Iterable, Mapping, Sequence
from pathlib import Path
from typing import Any

from machine_of_tests import BENCH_PROGRAM, Machine, replace, report
from mosquitto_of_tests import Bridge, Client, write_settings
from qnrescue import commands
from qnrescue.bench.slot_names import DETECT_SECONDS
from qnrescue.bench.slots import FILE_NAME, Slots, write_slots
from qnrescue.documents import DocumentSplitter, parse_document
from qnrescue.events import DeviceList
from qnrescue.fleet.messages import job_message
from qnrescue.jobs import Job, JobState
from qnrescue.journal import Journal
from qnrescue.tool import pick

BUNDLE = "update.ipsw"
_FIRST_LOCATION = 0x14100000

# How often the traces may have a restore of a job that has ended like this.
_STARTS = {JobState.REFUSED: {0}, JobState.QUEUED: {0}, JobState.RUNNING: {0, 1},
           JobState.CANCELLED: {0, 1}, JobState.INTERRUPTED: {0, 1}}


def good_reports(pauses: Iterable[float]) -> list[dict[str, Any]]:
    """Returns the reports of a restore that succeeds, with these pauses between them."""
    between = list(pauses)
    steps = [report(pause, 13, 5 + 94 * number // len(between))
             for number, pause in enumerate(between, 1)]
    return [report(0.3, 3, 1), report(0.3, 9, 5), *steps, report(0.3, 0, 100, "Successful")]


class Station:
    """A bench of simulated devices whose bridge is a process of this one."""

    def __init__(self, folder: Path, tool: Sequence[str], port: int, slots: int) -> None:
        """Makes the bench; the name of the folder is that of the station."""
        folder.mkdir()
        self.name = folder.name
        self.machine = Machine(folder, tool)
        bundles = folder / "bundles"
        bundles.mkdir()
        shutil.copy(self.machine.bundle, bundles / BUNDLE)
        write_settings(self.machine.bench, self.name, f"mqtt://127.0.0.1:{port}", bundles)
        write_slots(self.machine.bench / FILE_NAME,
                    Slots({_FIRST_LOCATION + each: f"slot {each + 1}" for each in range(slots)}))
        self._devices: list[dict[str, Any]] = []
        self.plug_in()

    def start(self) -> None:
        """Starts the bridge."""
        self.bridge = Bridge(self.machine.bench, self.machine.folder / "serve.log",
                             environment=self.machine.environment)

    def supervise(self) -> subprocess.Popen[bytes]:
        """Starts a supervisor that stays."""
        with (self.machine.folder / "supervise.log").open("ab") as log:
            return subprocess.Popen([BENCH_PROGRAM, "supervise"], stdout=log, stderr=log,
                                    env=self.machine.environment)

    def plug_in(self, *devices: Mapping[str, Any]) -> None:
        """Plugs devices into the next slots, as the scenario of a simulator has them."""
        for device in devices:
            self._devices.append({"State": "Recovery", "AfterInterruption": 1.0,
                                  "LocationID": _FIRST_LOCATION + len(self._devices), **device})
        replace(self.machine.scenario, {"Devices": self._devices})

    def plugged_in(self) -> dict[str, dict[str, Any]]:
        """Returns what the broker has to have of the devices that ever were plugged in."""
        attached = self._attached()
        return {each["ECID"]: {"state": "attached" if each["ECID"] in attached else "away",
                               "serial_number": each.get("SerialNumber", ""),
                               "slot": f"slot {number}", "job": ""}
                for number, each in enumerate(self._devices, 1)}

    def _attached(self) -> Sequence[str]:
        """Returns the devices that the tool lists."""
        run = subprocess.run(
            [self.machine.tool, *commands.list_devices(detect_timeout=DETECT_SECONDS)],
            env=self.machine.environment, stdin=subprocess.DEVNULL, capture_output=True,
            timeout=120)
        return pick(DeviceList, [parse_document(each) for each in
                                 DocumentSplitter().feed(run.stdout)], str(run)).ecids

    def jobs(self) -> list[Job]:
        """Returns what the journal has, the newest first."""
        with Journal(self.machine.bench) as journal:
            return journal.jobs()

    def devices(self) -> dict[str, dict[str, Any]]:
        """Returns the devices that are at the station, as the journal has them."""
        with Journal(self.machine.bench) as journal:
            devices = json.loads(journal.fact("fleet devices") or "{}")
        return {ecid: each for ecid, each in devices.items() if not each.pop("gone")}

    def lose_power(self) -> None:
        """Stops the machine at this instant. What the disk had then is all that is left."""
        bench, disk = self.machine.bench, self.machine.folder / "disk"
        for number in (signal.SIGSTOP, signal.SIGKILL):
            seen: set[int] = set()
            while found := {each.pid for each in self.machine.processes()} - seen:
                seen |= found
                for pid in found:
                    with contextlib.suppress(ProcessLookupError):  # it has ended meanwhile
                        os.kill(pid, number)
            if number == signal.SIGSTOP:
                shutil.copytree(bench, disk)
        self.bridge.process.wait()
        shutil.rmtree(bench)
        disk.rename(bench)


def kept_by(port: int) -> dict[str, bytes]:
    """Returns the messages that the broker keeps, by topic."""
    mark = "end/of/kept"
    client = Client(port, filters=("qnrescue/#", mark))
    client.publish(mark, "")
    client.wait_for(mark)
    client.close()
    return client.kept


def faults_of_traces(station: Station) -> list[str]:
    """Returns what is wrong with the restores that the simulator has seen."""
    restores = station.machine.restores()
    jobs = station.jobs()
    devices = {job.id: job.device for job in jobs}
    faults = [f"{station.name}: {job_id} restores {device}" for job_id, device in restores
              if devices.get(job_id) != device]
    starts = Counter(job_id for job_id, _ in restores)
    faults += [f"{station.name}: {job.id}, {job.state}, was started {starts[job.id]} times"
               for job in jobs if starts[job.id] not in _STARTS.get(job.state, {1})]
    faults += [f"{station.name}: {device} was restored {times} times"
               for device, times in Counter(device for _, device in restores).items() if times > 1]
    return faults


def faults_of_broker(station: Station, kept: Mapping[str, bytes]) -> list[str]:
    """Returns where the broker differs from the journal of a station that is online."""
    start = f"qnrescue/{station.name}/"
    found = {topic.removeprefix(start): payload.decode() for topic, payload in kept.items()
             if topic.startswith(start)}
    jobs, devices = station.jobs(), station.devices()
    active = {job.device: job.id for job in jobs if not job.state.is_end}
    faults = []
    if found.pop("availability", "") != "online":
        faults.append("the station is not online")
    if json.loads(found.pop("station", "{}")).get("bundles") != [BUNDLE]:
        faults.append("the station is not what it has to be")
    for job in jobs:
        if found.pop(f"jobs/{job.id}", "") != job_message(job):
            faults.append(f"{job.id} is not {job.state}")
    for ecid, device in devices.items():
        value = json.loads(found.pop(f"devices/{ecid}", "{}"))
        if value.get("job") != active.get(ecid, "") or any(
                value.get(name) != each for name, each in device.items()):
            faults.append(f"{ecid} is {value}, and not {device}")
    faults += [f"{topic} is not known to the journal" for topic in found]
    return [f"the broker, {station.name}: {fault}" for fault in faults]


def faults_of_devices(station: Station, kept: Mapping[str, bytes]) -> list[str]:
    """Returns where the broker differs from what is plugged in at a station without jobs under way.
    That a device has gone may take a while to be known: it is away until then."""
    start = f"qnrescue/{station.name}/devices/"
    found = {topic.removeprefix(start): json.loads(payload) for topic, payload in kept.items()
             if topic.startswith(start)}
    devices = station.plugged_in()
    faults = [f"{ecid} is {found.get(ecid)}, and not {device}" for ecid, device in devices.items()
              if not device.items() <= found.get(ecid, {**device, "state": "away"}).items()]
    faults += [f"{ecid} was never plugged in" for ecid in found.keys() - devices.keys()]
    return [f"the broker, {station.name}: {fault}" for fault in faults]
