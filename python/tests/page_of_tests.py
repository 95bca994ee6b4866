"""A screen as its own process, and its page without a browser, for tests."""

from __future__ import annotations

import json
import threading
import urllib.error
import urllib.request
from pathlib import Path
from typing import Any

from bench_of_tests import wait_until
from fleet_of_tests import DEVICE, OTHER_DEVICE
from qnrescue.jobs import new_job_id
from qnrescue.screen.guard import TOKEN_HEADER
from test_screen_command import start, stop

NAME = "bench-07"


class Screen:
    """A screen as its own process, and what a page knows of it."""

    def __init__(self, folder: Path, *words: str) -> None:
        folder.mkdir(exist_ok=True)
        self.process, self.address = start(folder, *words)
        self.stations: dict[str, dict[str, Any]] = {}
        self.notice = ""
        self.token = ""
        self._thread = threading.Thread(target=self._follow, daemon=True)
        self._thread.start()
        wait_until(lambda: self.token)

    def _follow(self) -> None:
        with urllib.request.urlopen(self.address + "events") as events:
            for line in events:
                name, _, text = line.decode().strip().partition(": ")
                if name == "data":
                    self._take(json.loads(text))

    def _take(self, value: dict[str, Any]) -> None:
        self.token = value.get("token", self.token)
        self.notice = value.get("notice", self.notice)
        for name in value.get("gone", ()):
            del self.stations[name]
        for each in value.get("stations", ()):
            station = self.stations.setdefault(each["name"], {"tiles": {}})
            tiles = {**station["tiles"], **{tile["key"]: tile for tile in each.get("tiles", ())}}
            keys = each.get("keys", list(station["tiles"]))
            self.stations[each["name"]] = {"head": each.get("head", station.get("head")),
                                           "tiles": {key: tiles[key] for key in keys}}

    def head(self) -> dict[str, Any]:
        """Returns what is shown of the station itself; empty if it is not known."""
        return dict(self.stations.get(NAME, {}).get("head") or {})

    def tile(self, ecid: str = DEVICE) -> dict[str, Any]:
        """Returns the tile of the device; empty if there is none."""
        return dict(self.stations.get(NAME, {"tiles": {}})["tiles"].get(f"device:{ecid}", {}))

    def is_complete(self) -> bool:
        """Returns whether the station is online, with its bundle and both devices."""
        return bool(self.head().get("online") and "a.ipsw" in self.head()["bundles"]
                    and self.tile() and self.tile(OTHER_DEVICE) and not self.notice)

    def post(self, path: str, **values: object) -> tuple[int, dict[str, Any]]:
        """Posts as the page does; returns the status and the answer."""
        request = urllib.request.Request(
            self.address + path, json.dumps({"station": NAME, **values}).encode(),
            {"Content-Type": "application/json", "Origin": self.address.rstrip("/"),
             TOKEN_HEADER: self.token})
        try:
            with urllib.request.urlopen(request) as response:
                return response.status, json.load(response)
        except urllib.error.HTTPError as refusal:
            with refusal:
                return refusal.code, json.load(refusal)

    def restore(self, device: str = DEVICE, bundle: str = "a.ipsw") -> tuple[int, dict[str, Any]]:
        """Orders a restore."""
        return self.post("restore", id=new_job_id(), device=device, bundle=bundle, erase=False,
                         confirmation="")

    def job(self, job_id: str) -> dict[str, Any]:
        """Returns what the page of the job shows."""
        with urllib.request.urlopen(f"{self.address}job?station={NAME}&id={job_id}") as response:
            value: dict[str, Any] = json.load(response)
            return value

    def close(self) -> None:
        """Ends it."""
        assert stop(self.process) == 0
        self._thread.join()
