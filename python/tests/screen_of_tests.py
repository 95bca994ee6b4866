"""A screen with stations that the test makes up, and what asks it."""

from __future__ import annotations

import asyncio
import contextlib
import json
import time
from collections.abc import AsyncIterator, Mapping
from dataclasses import replace
from typing import Any

import aiohttp
from aiohttp import web

from qnrescue.jobs import Job, JobOrder, JobState
from qnrescue.screen.board import Board, Device, Station
from qnrescue.screen.guard import TOKEN_HEADER, Guard
from qnrescue.screen.server import ScreenServer
from qnrescue.screen.source import Answer, Papers, RestoreRequest
from qnrescue.steps_file import Step

ECID = "000A35D83C60802E"
HOSTILE = "<img src=x onerror=\"document.title='broken'\">"


def job(job_id: str = "job-1", state: JobState = JobState.RUNNING, *, device: str = ECID,
        slot: str = "left 1", **values: Any) -> Job:
    """Returns a job of a station."""
    times: dict[str, Any] = {"ordered_at": 1000.0, "started_at": 1001.0, "seconds": 5.0}
    if state.is_end:
        times["ended_at"] = 1006.0
    if state in (JobState.QUEUED, JobState.REFUSED):
        times |= {"started_at": None, "seconds": 0.0}
    order = JobOrder(device, "/bundles/update.ipsw", slot=slot)
    return Job(job_id, order, state, revision=1,
               **{"asked_by": "somebody", **times, **values})


class MadeUp:
    """Stations as the test wants them. What is ordered is written down, and done at once."""

    def __init__(self, *stations: Station) -> None:
        self.stations = stations or (Station("north", slots=("left 1", "left 2"),
                                             bundles=("update.ipsw",), may_erase=True),)
        self.devices = [Device(ECID, "left 1", "F17XK1")]
        self.jobs: list[Job] = []
        self.orders: list[RestoreRequest] = []
        self.cancelled: list[str] = []
        self.answer = Answer(True)
        self.kept = Papers((Step("Booting", 0.0), Step("Flashing", 2.0)),
                           ({"Type": "RestoreStatus", "Value": {"Status": HOSTILE}},))
        self.board: Board | None = None

    async def run(self, board: Board) -> None:
        self.board = board
        for station in self.stations:
            board.set_station(station)
        for device in self.devices:
            board.set_device(self.stations[0].name, device)
        for each in self.jobs:
            board.set_job(self.stations[0].name, each)
        await asyncio.Event().wait()

    async def order(self, station: str, request: RestoreRequest, asked_by: str) -> Answer:
        self.orders.append(request)
        if self.answer.accepted and self.board:
            new = job(request.id, JobState.QUEUED, device=request.device, asked_by=asked_by)
            self.board.set_job(station, new)
        return self.answer

    async def cancel(self, station: str, job_id: str, asked_by: str) -> Answer:
        self.cancelled.append(job_id)
        old = self.board.job(station, job_id) if self.board else None
        if self.board and old and self.answer.accepted:
            self.board.set_job(station, replace(old, state=JobState.CANCELLED, ended_at=time.time(),
                                                cancel_asked_by=asked_by))
        return self.answer

    async def papers(self, station: str, job_id: str) -> Papers:
        return self.kept


class TestScreen:
    """A screen that is served, and a client without a browser's manners."""

    __test__ = False

    def __init__(self, base: str, guard: Guard, client: aiohttp.ClientSession) -> None:
        self.base = base
        self.guard = guard
        self.client = client

    async def get(self, path: str, **headers: str) -> tuple[int, str]:
        """Returns the status and the text of an answer."""
        async with self.client.get(self.base + path, headers=headers) as response:
            return response.status, await response.text()

    async def post(self, path: str, value: object, **headers: str | None) -> tuple[int, str]:
        """Posts as the page does, unless the headers say otherwise; returns the status and the
        text."""
        usual = {"Origin": self.base, TOKEN_HEADER: self.guard.token,
                 "Content-Type": "application/json"}
        sent = {name: text for name, text in {**usual, **headers}.items() if text is not None}
        data = value if isinstance(value, str) else json.dumps(value)
        async with self.client.post(self.base + path, data=data.encode(),
                                    headers=sent) as response:
            return response.status, await response.text()

    async def events(self, count: int) -> list[tuple[str, dict[str, Any]]]:
        """Returns the first events, without the beats."""
        found: list[tuple[str, dict[str, Any]]] = []
        async with self.client.get(self.base + "/events") as response:
            kind = ""
            async for line in response.content:
                name, _, value = line.decode().strip().partition(": ")
                if name == "event":
                    kind = value
                elif name == "data" and kind != "beat":
                    found.append((kind, json.loads(value)))
                if len(found) == count:
                    break
        return found


@contextlib.asynccontextmanager
async def serving(source: MadeUp, **how: Any) -> AsyncIterator[TestScreen]:
    """Serves a screen; `how` is for the guard."""
    guard = Guard(["localhost"], **how)
    runner = web.AppRunner(ScreenServer(source, guard).app(), access_log=None)
    await runner.setup()
    try:
        await web.TCPSite(runner, "127.0.0.1", 0).start()
        base = f"http://127.0.0.1:{runner.addresses[0][1]}"
        async with aiohttp.ClientSession(timeout=aiohttp.ClientTimeout(60)) as client:
            screen = TestScreen(base, guard, client)
            while not (await screen.events(1))[0][1]["stations"]:
                await asyncio.sleep(0.05)
            yield screen
    finally:
        await runner.cleanup()


def tile_of(event: Mapping[str, Any], key: str) -> dict[str, Any]:
    """Returns the tile of an event."""
    found: dict[str, Any] = next(tile for station in event["stations"]
                                 for tile in station.get("tiles", ()) if tile["key"] == key)
    return found
