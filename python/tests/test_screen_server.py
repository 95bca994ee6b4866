"""What the server of the screen sends and accepts."""

from __future__ import annotations

import asyncio
import itertools
import json
import socket
import time
from collections.abc import Awaitable, Callable
from dataclasses import replace
from pathlib import Path
from typing import Any

import pytest

from bench_of_tests import TIME_LIMIT
from qnrescue.jobs import JobState
from qnrescue.screen import server as server_module
from qnrescue.screen.board import Board, Station
from qnrescue.screen.guard import TOKEN_HEADER
from qnrescue.screen.source import Answer, Papers
from screen_of_tests import ECID, MadeUp, TestScreen, job, serving, tile_of

ORDER = {"station": "north", "id": "new-1", "device": ECID, "bundle": "update.ipsw",
         "erase": False, "confirmation": ""}
CANCEL = {"station": "north", "id": "job-1"}


def run(source: MadeUp, talk: Callable[[TestScreen], Awaitable[None]], **how: Any) -> None:
    """Serves a screen while there is talk."""
    async def serve() -> None:
        async with serving(source, **how) as screen:
            await talk(screen)

    asyncio.run(serve())


def test_serves_the_page_with_its_files_and_nothing_else() -> None:
    async def talk(screen: TestScreen) -> None:
        status, page = await screen.get("/")
        assert (status, "<!doctype html>" in page) == (200, True)
        for name in ("style.css", "main.js", "icon.svg"):
            assert (await screen.get(f"/{name}"))[0] == 200
        for name in ("server.py", "..%2fserver.py", "page%2f..%2fmain.js", "page/main.js",
                     "main.py",
                     "..%5cserver.py", "missing.js", "html"):
            assert (await screen.get(f"/{name}"))[0] == 404

    run(MadeUp(), talk)


def test_every_answer_has_the_policy() -> None:
    async def talk(screen: TestScreen) -> None:
        for path, sent in (("/", {}), ("/missing", {}), ("/", {"Host": "evil.example"}),
                           ("/job", {})):
            async with screen.client.get(screen.base + path, headers=sent) as response:
                policy = response.headers["Content-Security-Policy"]
                assert "default-src 'none'" in policy
                assert "unsafe" not in policy
                assert response.headers["X-Content-Type-Options"] == "nosniff"

    run(MadeUp(), talk)


def test_sends_everything_and_then_what_changes() -> None:
    source = MadeUp()
    source.jobs = [job(step="Booting", progress=1)]

    async def talk(screen: TestScreen) -> None:
        events = asyncio.create_task(screen.events(2))
        await asyncio.sleep(0.5)
        assert source.board
        source.board.set_job("north", job(step="Booting", progress=2))
        (first, everything), (second, changes) = await events
        assert (first, second) == ("state", "changes")
        assert (everything["token"], everything["read_only"]) == (screen.guard.token, False)
        assert tile_of(everything, "slot:left 1")["progress"] == 1
        assert tile_of(changes, "slot:left 1")["progress"] == 2
        assert len(changes["stations"][0]["tiles"]) == 1

    run(source, talk)


def test_shows_a_job_with_its_papers() -> None:
    source = MadeUp()
    source.jobs = [job()]

    async def talk(screen: TestScreen) -> None:
        status, text = await screen.get("/job?station=north&id=job-1")
        value = json.loads(text)
        assert (status, value["job"]["device"]) == (200, ECID)
        assert value["steps"] == [{"name": "Booting", "start": 0.0},
                                  {"name": "Flashing", "start": 2.0}]
        assert value["documents"][0]["Type"] == "RestoreStatus"
        assert (await screen.get("/job?station=north&id=other"))[0] == 404
        assert (await screen.get("/job?station=north&id=../../etc"))[0] == 400
        assert (await screen.get("/job?id=job-1"))[0] == 400

    run(source, talk)


def test_documents_come_as_a_file_that_no_browser_shows(tmp_path: Path) -> None:
    file = tmp_path / "documents"
    file.write_text("<html><script>alert(1)</script>")
    source = MadeUp()
    source.jobs = [job()]
    source.kept = Papers(file=file)

    async def talk(screen: TestScreen) -> None:
        address = f"{screen.base}/documents?station=north&id=job-1"
        async with screen.client.get(address) as response:
            assert (response.status, await response.read()) == (200, file.read_bytes())
            assert response.headers["Content-Type"] == "application/octet-stream"
            assert response.headers["Content-Disposition"].startswith("attachment")
        file.unlink()
        async with screen.client.get(address) as response:
            assert response.status == 404

    run(source, talk)


def test_passes_on_an_order() -> None:
    source = MadeUp()

    async def talk(screen: TestScreen) -> None:
        status, text = await screen.post("/restore", ORDER)
        assert (status, json.loads(text)["accepted"]) == (200, True)
        (order,) = source.orders
        assert (order.id, order.device, order.bundle, order.erase) == (
            "new-1", ECID, "update.ipsw", False)

    run(source, talk)


def test_erases_only_with_the_confirmation() -> None:
    source = MadeUp()

    async def talk(screen: TestScreen) -> None:
        assert (await screen.post("/restore", {**ORDER, "erase": True}))[0] == 409
        assert source.orders == []
        await screen.post("/restore", {**ORDER, "erase": True, "confirmation": "erase"})
        assert [order.erase for order in source.orders] == [True]

    run(source, talk)


@pytest.mark.parametrize(("change", "reason"), [
    ({"bundle": "other.ipsw"}, "no such bundle"), ({"bundle": "../update.ipsw"}, "no such bundle"),
    ({"device": "0000000000000001"}, "not attached"), ({"station": "south"}, "offline")])
def test_refuses_what_the_station_does_not_have(change: dict[str, object], reason: str) -> None:
    source = MadeUp()

    async def talk(screen: TestScreen) -> None:
        status, text = await screen.post("/restore", {**ORDER, **change})
        assert (status, reason in json.loads(text)["reason"]) == (409, True)
        assert source.orders == []

    run(source, talk)


def test_refuses_to_erase_where_the_station_does_not_allow_it() -> None:
    source = MadeUp(Station("north", bundles=("update.ipsw",)))

    async def talk(screen: TestScreen) -> None:
        order = {**ORDER, "erase": True, "confirmation": "erase"}
        assert "does not allow" in (await screen.post("/restore", order))[1]
        assert source.orders == []

    run(source, talk)


def test_an_offline_station_gets_no_order() -> None:
    source = MadeUp(Station("north", online=False, bundles=("update.ipsw",)))

    async def talk(screen: TestScreen) -> None:
        assert (await screen.post("/restore", ORDER))[0] == 409
        assert source.orders == []

    run(source, talk)


@pytest.mark.parametrize("value", [
    "", "[]", "{", "null", "[" * 2000, {**ORDER, "more": 1}, {**ORDER, "erase": "yes"},
    {**ORDER, "id": "../x"}, {**ORDER, "id": "NUL"}, {**ORDER, "device": "xyz"},
    {name: value for name, value in ORDER.items() if name != "bundle"}])
def test_refuses_orders_that_are_none(value: object) -> None:
    source = MadeUp()

    async def talk(screen: TestScreen) -> None:
        assert (await screen.post("/restore", value))[0] == 400
        assert source.orders == []

    run(source, talk)


def test_refuses_long_and_forged_orders() -> None:
    source = MadeUp()
    source.jobs = [job()]

    async def talk(screen: TestScreen) -> None:
        assert (await screen.post("/restore", {**ORDER, "bundle": "x" * 9000}))[0] == 413
        for path, value in (("/restore", ORDER), ("/cancel", CANCEL)):
            headers: dict[str, str | None]
            for headers in ({TOKEN_HEADER: None}, {"Origin": "http://evil.example"},
                            {"Origin": None}):
                assert (await screen.post(path, value, **headers))[0] == 403
            plain: dict[str, str | None] = {"Content-Type": "text/plain"}
            assert (await screen.post(path, value, **plain))[0] == 415
        assert (source.orders, source.cancelled) == ([], [])

    run(source, talk)


def test_read_only_accepts_nothing() -> None:
    source = MadeUp()
    source.jobs = [job()]

    async def talk(screen: TestScreen) -> None:
        assert (await screen.post("/restore", ORDER))[0] == 403
        assert (await screen.post("/cancel", CANCEL))[0] == 403
        assert (source.orders, source.cancelled) == ([], [])
        assert (await screen.events(1))[0][1]["read_only"] is True

    run(source, talk, read_only=True)


def test_passes_on_a_cancel_and_says_why_it_is_refused() -> None:
    source = MadeUp()
    source.jobs = [job()]

    async def talk(screen: TestScreen) -> None:
        assert (await screen.post("/cancel", CANCEL))[0] == 200
        assert source.cancelled == ["job-1"]
        source.answer = Answer(False, "the job has ended")
        status, text = await screen.post("/cancel", CANCEL)
        assert (status, json.loads(text)["reason"]) == (409, "the job has ended")
        assert (await screen.post("/cancel", {**CANCEL, "id": "other"}))[0] == 404

    run(source, talk)


def test_has_a_limit_of_viewers_that_are_there(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(server_module, "_MOST_VIEWERS", 2)
    monkeypatch.setattr(server_module, "_PUBLISH_SECONDS", 0.02)
    monkeypatch.setattr(server_module, "_BEAT_SECONDS", 0.02)

    async def talk(screen: TestScreen) -> None:
        address = screen.base + "/events"
        async with screen.client.get(address) as first:
            assert first.status == 200
            while (second := await screen.client.get(address)).status != 200:
                await asyncio.sleep(0.05)  # until the one that asked before is known to have gone
            assert (await screen.get("/events"))[0] == 503
            second.close()

    run(MadeUp(), talk)


def test_a_job_with_any_text_can_be_sent() -> None:
    source = MadeUp()
    source.jobs = [replace(job(), step="<b>", reason="\u2028\x00")]

    async def talk(screen: TestScreen) -> None:
        assert (await screen.get("/job?station=north&id=job-1"))[0] == 200

    run(source, talk)


def test_an_order_that_comes_again_is_the_same_job() -> None:
    source = MadeUp()
    source.jobs = [
        replace(job("new-1", JobState.FAILED, reason="no NAND"), ended_at=time.time()),
        replace(job("new-2", JobState.REFUSED, reason="the device has a job"),
                ended_at=time.time())]
    source.devices = []

    async def talk(screen: TestScreen) -> None:
        status, text = await screen.post("/restore", ORDER)
        assert (status, json.loads(text)["reason"]) == (200, "")
        status, text = await screen.post("/restore", {**ORDER, "id": "new-2"})
        assert (status, json.loads(text)["reason"]) == (409, "the device has a job")
        status, text = await screen.post("/restore", {**ORDER, "device": "0" * 16})
        assert (status, json.loads(text)["reason"]) == (409, "another job has this id")
        assert source.orders == []

    run(source, talk)


def test_asking_for_a_station_that_is_not_there_shows_none() -> None:
    source = MadeUp()

    async def talk(screen: TestScreen) -> None:
        for path in ("/job", "/documents"):
            assert (await screen.get(f"{path}?station=ghost&id=job-1"))[0] == 404
        assert (await screen.post("/cancel", {"station": "ghost", "id": "job-1"}))[0] == 404
        assert (await screen.post("/restore", {**ORDER, "station": "ghost"}))[0] == 409
        assert source.board and list(source.board.view(time.time())) == ["north"]

    run(source, talk)


def test_says_that_it_does_not_follow_the_stations_any_more(
        monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(server_module, "_BEAT_SECONDS", 0.1)

    class Failing(MadeUp):
        async def run(self, board: Board) -> None:
            board.set_station(self.stations[0])
            await asyncio.sleep(0.5)
            raise ValueError("rubbish")

    async def talk(screen: TestScreen) -> None:
        async with screen.client.get(screen.base + "/events") as response:
            async for line in response.content:
                if b"what is shown is old: ValueError('rubbish')" in line:
                    return

    run(Failing(), talk)


async def viewer_that_takes_nothing(screen: TestScreen) -> socket.socket:
    """Returns a connection that has been let in, and reads nothing more."""
    loop = asyncio.get_running_loop()
    while True:
        viewer = socket.socket()
        viewer.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        viewer.setblocking(False)
        await loop.sock_connect(viewer, ("127.0.0.1", int(screen.base.rpartition(":")[2])))
        await loop.sock_sendall(viewer, b"GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n")
        if await loop.sock_recv(viewer, 12) == b"HTTP/1.1 200":
            return viewer
        viewer.close()
        await asyncio.sleep(0.05)  # until the one that asked before is known to have gone


async def status_of_events(screen: TestScreen) -> int:
    """Returns whether one more viewer is let in."""
    async with screen.client.get(screen.base + "/events") as response:
        return response.status


def test_a_viewer_that_takes_nothing_is_let_go(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(server_module, "_TAKE_SECONDS", 0.5)
    monkeypatch.setattr(server_module, "_PUBLISH_SECONDS", 0.01)
    monkeypatch.setattr(server_module, "_MOST_VIEWERS", 2)
    source = MadeUp()

    async def talk(screen: TestScreen) -> None:
        viewers = [await viewer_that_takes_nothing(screen) for _ in range(2)]
        assert await status_of_events(screen) == 503
        limit = time.monotonic() + TIME_LIMIT
        for number in itertools.count():
            assert source.board and time.monotonic() < limit
            source.board.set_station(Station("north", slots=tuple(
                f"{number} {slot}" for slot in range(2000))))
            if await status_of_events(screen) == 200:
                break
            await asyncio.sleep(0.02)
        for viewer in viewers:
            viewer.close()

    run(source, talk)


def test_events_are_for_those_who_read_them() -> None:
    async def talk(screen: TestScreen) -> None:
        async with screen.client.head(screen.base + "/events") as response:
            assert response.status == 404

    run(MadeUp(), talk)
