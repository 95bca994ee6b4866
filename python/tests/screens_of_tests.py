"""The screen of a fleet as its own process, who looks at it, and what is true of it."""

from __future__ import annotations

import contextlib
import copy
import http.client
import json
import subprocess
import threading
import time
import urllib.parse
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

from machine_of_tests import BENCH_PROGRAM
from qnrescue.jobs import Job, JobState
from qnrescue.screen.guard import TOKEN_HEADER
from stations_of_tests import Station

_SECONDS = 60.0  # that an answer may take

# What the server sends of a station, by its name.
_View = dict[str, dict[str, Any]]


class ScreenProcess:
    """The command screen, with the stations of a broker."""

    def __init__(self, folder: Path, port: int) -> None:
        folder.mkdir()
        self.log = folder / "screen.log"
        with self.log.open("wb") as log:
            self.process = subprocess.Popen(
                [BENCH_PROGRAM, "screen", "--folder", str(folder), "--port", "0",
                 "--broker", f"mqtt://127.0.0.1:{port}"], stdout=subprocess.PIPE, stderr=log)
        assert self.process.stdout is not None
        self.address = self.process.stdout.readline().decode().strip()
        if not self.address:
            self.close()
            raise AssertionError(f"the screen does not start: {self.log.read_text()}")
        self.host = urllib.parse.urlsplit(self.address).netloc

    def job(self, station: str, job_id: str) -> dict[str, Any]:
        """Returns the page of a job."""
        query = urllib.parse.urlencode({"station": station, "id": job_id})
        return self._ask("GET", f"/job?{query}")

    def state(self) -> dict[str, Any]:
        """Returns what a new page is sent first."""
        with _Stream(self.host) as events:
            return next(value for kind, value in events if kind == "state")

    def restore(self, station: str, job_id: str, device: str, bundle: str) -> dict[str, Any]:
        """Orders a restore as the page does, and returns the answer."""
        headers = {"Origin": f"http://{self.host}", TOKEN_HEADER: self.state()["token"],
                   "Content-Type": "application/json"}
        return self._ask("POST", "/restore", json.dumps(
            {"station": station, "id": job_id, "device": device, "bundle": bundle, "erase": False,
             "confirmation": ""}), headers)

    def _ask(self, method: str, path: str, *rest: Any) -> dict[str, Any]:
        connection = http.client.HTTPConnection(self.host, timeout=_SECONDS)
        try:
            connection.request(method, path, *rest)
            text = connection.getresponse().read()
        finally:
            connection.close()
        try:
            value: dict[str, Any] = json.loads(text)
            return value
        except ValueError:  # a refusal is a text
            return {"error": text.decode()}

    def close(self) -> None:
        """Ends the server."""
        self.process.kill()
        self.process.wait()
        assert self.process.stdout is not None
        self.process.stdout.close()


class _Stream:
    """The events of the server."""

    def __init__(self, host: str) -> None:
        self._connection = http.client.HTTPConnection(host, timeout=_SECONDS)
        self._connection.request("GET", "/events")
        self._response = self._connection.getresponse()

    def __enter__(self) -> Iterator[tuple[str, Any]]:
        return self._events()

    def __exit__(self, *_: object) -> None:
        self._response.close()
        self._connection.close()

    def _events(self) -> Iterator[tuple[str, Any]]:
        rest = b""
        while data := self._response.read1(1 << 16):
            *events, rest = (rest + data).split(b"\n\n")
            for event in events:
                kind, text = event.split(b"\n")
                yield kind.partition(b": ")[2].decode(), json.loads(text.partition(b": ")[2])


class Viewer:
    """Follows the events of a screen, as a page does, until the server ends."""

    def __init__(self, screen: ScreenProcess,
                 note: Callable[[dict[str, Any], float], None] = lambda tile, at: None) -> None:
        """Begins. `note` gets each tile that is sent, and when that was, in seconds since
        1970-01-01."""
        self._note = note
        self._lock = threading.Lock()
        self._view: _View = {}
        self.notice = ""  # what the screen says is wrong
        threading.Thread(target=self._follow, args=(screen.host,), daemon=True).start()

    def view(self) -> _View:
        """Returns what a page shows now."""
        with self._lock:
            return copy.deepcopy(self._view)

    def online(self) -> set[str]:
        """Returns the stations that a page shows as online now."""
        return {name for name, station in self.view().items() if station["head"]["online"]}

    def _follow(self, host: str) -> None:
        with contextlib.suppress(OSError, http.client.HTTPException), _Stream(host) as events:
            for kind, value in events:
                now = time.time()
                if kind == "beat":
                    self.notice = value["notice"]
                    continue
                with self._lock:
                    if kind == "state":
                        self._view = {}
                    apply(self._view, value)
                for station in value.get("stations", ()):
                    for tile in station.get("tiles", ()):
                        self._note(tile, now)


def apply(view: _View, change: dict[str, Any]) -> None:
    """Changes a view as the server says."""
    for each in change.get("stations", ()):
        station = view.setdefault(each["name"], {"head": None, "tiles": {}})
        station["head"] = each.get("head", station["head"])
        tiles = station["tiles"] | {tile["key"]: tile for tile in each.get("tiles", ())}
        station["tiles"] = {key: tiles[key] for key in each.get("keys", tiles)}
    for name in change.get("gone", ()):
        view.pop(name, None)


def faults_of_screen(stations: list[Station], screen: ScreenProcess, viewer: Viewer) -> list[str]:
    """Returns where the screen differs from the journals of stations that are online."""
    view: _View = {}
    apply(view, screen.state())
    faults = [] if viewer.view() == view else ["who has followed the screen sees something else"]
    if viewer.notice:
        faults.append(viewer.notice)
    if set(view) != {station.name for station in stations}:
        faults.append(f"stations {sorted(view)}")
    for station in stations:
        shown = view.get(station.name, {"head": {"online": False}, "tiles": {}})
        if not shown["head"]["online"]:
            faults.append(f"{station.name} is offline")
        jobs = station.jobs()
        faults += [f"{station.name}: {fault}" for job in jobs
                   if (fault := _fault_of_page(job, screen.job(station.name, job.id)))]
        tiles = {tile["device"]: tile for tile in shown["tiles"].values()}
        attached = {ecid: (tile["slot"], tile["serial"]) for ecid, tile in tiles.items()
                    if tile["attached"]}
        if attached != (known := {ecid: (device["slot"], device["serial_number"])
                                  for ecid, device in station.devices().items()}):
            faults.append(f"{station.name} has the devices {attached}, and not {known}")
        faults += [f"{station.name}: {fault}" for job in _latest(jobs)
                   if (fault := _fault_of_tile(job, tiles.get(job.device)))]
    return [f"the screen: {fault}" for fault in faults]


def _latest(jobs: list[Job]) -> list[Job]:
    """Returns the job of each device that its tile has to show; `jobs` has the newest first."""
    found: dict[str, Job] = {}
    for job in reversed(jobs):
        if job.state is not JobState.REFUSED or job.device not in found:
            found[job.device] = job
    return list(found.values())


def _fault_of_page(job: Job, page: dict[str, Any]) -> str:
    shown = page.get("job", {})
    expected = {"device": job.device, "look": job.state.value, "step": job.step,
                "progress": job.progress, "reason": job.reason, "started": job.started_at,
                "ended": job.ended_at, "exit_status": job.exit_status}
    if all(shown.get(name, page) == value for name, value in expected.items()):
        return ""
    return f"{job.id} is {shown or page}, and not {expected}"


def _fault_of_tile(job: Job, tile: dict[str, Any] | None) -> str:
    if tile is not None and (tile["job"], tile["look"]) == (job.id, job.state.value):
        return ""
    return f"the tile of {job.device} is {tile}, and not {job.id}, {job.state}"
