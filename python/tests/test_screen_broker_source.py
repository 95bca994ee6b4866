"""The stations of a fleet, by a broker that the test plays."""

from __future__ import annotations

import asyncio
import json
import time
from collections.abc import Awaitable, Callable
from types import SimpleNamespace
from typing import Any

import pytest

from qnrescue.fleet.messages import answer_message, job_message
from qnrescue.fleet.settings import Broker
from qnrescue.screen import broker_source as module
from qnrescue.screen.board import Board
from qnrescue.screen.broker_settings import BrokerAccess
from qnrescue.screen.broker_source import BrokerSource
from qnrescue.screen.source import Answer, RestoreRequest
from qnrescue.steps_file import Step
from screen_of_tests import ECID, job
from test_screen_fleet_messages import DEVICE, STATION

ORDER = RestoreRequest("order-1", ECID, "a.ipsw", erase=True)


class TestClient:
    """What the source takes for its client."""

    __test__ = False
    on_connect: Callable[..., None]
    on_disconnect: Callable[..., None]
    on_message: Callable[..., None]
    on_subscribe: Callable[..., None]

    def __init__(self) -> None:
        self.subscribed: list[str] = []
        self.published: list[tuple[str, dict[str, Any]]] = []
        self.reply = answer_message("order-1", "")

    def subscribe(self, filters: list[tuple[str, int]]) -> None:
        self.subscribed = [each for each, _ in filters]

    def publish(self, topic: str, payload: str, qos: int) -> None:
        assert qos == 1
        self.published.append((topic, json.loads(payload)))
        if self.reply:
            self.say(topic.replace("/orders/", "/answers/"), self.reply, kept=False)

    def say(self, topic: str, payload: str | dict[str, Any], *, kept: bool = True) -> None:
        """Delivers a message."""
        text = payload if isinstance(payload, str) else json.dumps(payload)
        self.on_message(self, None, SimpleNamespace(topic=topic, payload=text.encode(),
                                                    retain=kept))

    def say_all(self) -> None:
        """Delivers what a station keeps at the broker."""
        self.say("qnrescue/north/availability", "online")
        self.say("qnrescue/north/station", STATION)
        self.say(f"qnrescue/north/devices/{ECID}", DEVICE)
        self.say("qnrescue/north/jobs/job-1", job_message(job(step="Booting")))

    def __getattr__(self, name: str) -> Any:
        if name in ("reconnect_delay_set", "connect_async", "loop_start", "loop_stop",
                    "disconnect", "username_pw_set"):
            return lambda *_: None
        raise AttributeError(name)


def play(monkeypatch: pytest.MonkeyPatch,
         act: Callable[[BrokerSource, TestClient, Board], Awaitable[None]]) -> None:
    """Connects a source, lets a station say everything, and acts."""
    client = TestClient()
    monkeypatch.setattr(module, "new_client", lambda name, clean_session: client)

    async def run() -> None:
        source = BrokerSource(BrokerAccess(Broker("broker.example", 1883, False)))
        board = Board()
        faults: list[object] = []
        asyncio.get_running_loop().set_exception_handler(lambda _, what: faults.append(what))
        task = asyncio.create_task(source.run(board))
        await asyncio.sleep(0)
        assert "not connected" in board.notice
        client.on_connect(client, None, {}, 0)
        client.say_all()
        await asyncio.sleep(0.01)
        try:
            await act(source, client, board)
        finally:
            task.cancel()
            await asyncio.wait([task])
        assert faults == []

    asyncio.run(run())


def tile(board: Board) -> dict[str, Any]:
    """Returns the tile of the device."""
    found: dict[str, Any] = board.view(time.time())["north"]["tiles"]["slot:left 1"]
    return found


def head(board: Board) -> dict[str, Any]:
    """Returns what is shown of the station itself."""
    found: dict[str, Any] = board.view(time.time())["north"]["head"]
    return found


def test_shows_what_a_station_says(monkeypatch: pytest.MonkeyPatch) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        assert client.subscribed == [
            f"qnrescue/+/{each}" for each in ("availability", "station", "devices/+", "jobs/+",
                                              "answers/+")]
        assert (board.notice, head(board)["online"]) == ("", True)
        assert (tile(board)["look"], tile(board)["text"], tile(board)["serial"]) == (
            "running", "Booting", "F17")
        client.say(f"qnrescue/north/devices/{ECID}", "", kept=False)
        client.say("qnrescue/north/jobs/job-1", "", kept=False)
        await asyncio.sleep(0.01)
        assert tile(board)["look"] == "empty"

    play(monkeypatch, act)


def test_a_station_that_goes_is_offline_since_its_last_word(
        monkeypatch: pytest.MonkeyPatch) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        client.say("qnrescue/north/availability", "offline")
        await asyncio.sleep(0.01)
        assert (head(board)["online"], head(board)["heard"]) == (False, 1000.0)
        client.say("qnrescue/north/station", {**STATION, "time": real() + 1e6})
        await asyncio.sleep(0.01)
        assert head(board)["heard"] <= real(), "its clock is ahead"
        client.say("qnrescue/north/availability", "online", kept=False)
        await asyncio.sleep(0.01)
        monkeypatch.setattr(module.time, "time", lambda: real() + 1000)
        # The last will comes from the broker, long after the station's last word.
        client.say("qnrescue/north/availability", "offline", kept=False)
        client.say("qnrescue/south/station", STATION)
        await asyncio.sleep(0.01)
        assert (head(board)["online"], abs(head(board)["heard"] - real()) < 60) == (False, True)

    real = time.time
    play(monkeypatch, act)


def test_without_the_broker_all_are_offline_until_it_is_back(
        monkeypatch: pytest.MonkeyPatch) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        client.on_disconnect(client, None, 7)
        await asyncio.sleep(0.01)
        assert (head(board)["online"], board.notice) == (False, "no connection to the broker")
        assert tile(board)["look"] == "running"
        answer = await source.order("north", ORDER, "the test")
        assert (answer.accepted, client.published) == (False, [])
        client.on_connect(client, None, {}, 5)
        client.on_disconnect(client, None, 5)
        await asyncio.sleep(0.01)
        assert "refuses" in board.notice
        client.on_connect(client, None, {}, 0)
        client.say("qnrescue/north/availability", "online")
        await asyncio.sleep(0.01)
        assert (head(board)["online"], board.notice) == (True, "")

    play(monkeypatch, act)


def test_says_that_it_may_not_read_the_topics(monkeypatch: pytest.MonkeyPatch) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        client.on_subscribe(client, None, 1, [1, 128])
        client.on_subscribe(client, None, 1, [1, 1])
        await asyncio.sleep(0.01)
        assert board.notice == "the broker does not let the screen read the topics"

    play(monkeypatch, act)


@pytest.mark.parametrize("topics", [
    ("availability", "station", f"devices/{ECID}", "jobs/job-1"),
    ("jobs/job-1", f"devices/{ECID}", "station", "availability")])
def test_a_station_whose_topics_are_emptied_vanishes(monkeypatch: pytest.MonkeyPatch,
                                                     topics: tuple[str, ...]) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        for topic in topics:
            assert list(board.view(1000.0)) == ["north"]
            client.say(f"qnrescue/north/{topic}", "", kept=False)
            client.say(f"qnrescue/ghost/{topic}", "", kept=False)
            await asyncio.sleep(0.01)
        assert board.view(1000.0) == {}

    play(monkeypatch, act)


def test_without_its_availability_a_station_is_online_at_its_next_word(
        monkeypatch: pytest.MonkeyPatch) -> None:
    """Not every broker sends what it has kept."""
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        client.on_disconnect(client, None, 7)
        client.on_connect(client, None, {}, 0)
        client.say("qnrescue/north/station", STATION)
        await asyncio.sleep(0.01)
        assert head(board)["online"] is False
        client.say("qnrescue/north/station", STATION, kept=False)
        await asyncio.sleep(0.01)
        assert head(board)["online"] is True

    play(monkeypatch, act)


def test_a_broker_that_sends_nothing_of_what_it_has_kept(monkeypatch: pytest.MonkeyPatch) -> None:
    """Then the stations are given the time to publish everything again."""
    monkeypatch.setattr(module, "_KEPT_SECONDS", 0.1)
    monkeypatch.setattr(module, "_REFRESHED_SECONDS", 4.0)

    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        client.on_disconnect(client, None, 7)
        client.on_connect(client, None, {}, 0)
        client.say("qnrescue/north/station", STATION, kept=False)
        client.say(f"qnrescue/north/devices/{ECID}", DEVICE, kept=False)
        await asyncio.sleep(0.5)
        assert tile(board)["look"] == "running"
        await asyncio.sleep(4.0)
        assert tile(board)["look"] == "attached", "the job was not published again"

    play(monkeypatch, act)


def test_forgets_what_left_while_there_was_no_connection(
        monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(module, "_KEPT_SECONDS", 0.05)

    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        client.on_disconnect(client, None, 7)
        client.on_connect(client, None, {}, 0)
        client.say("qnrescue/north/station", STATION)
        client.say(f"qnrescue/north/devices/{ECID}", DEVICE)
        await asyncio.sleep(0.5)
        assert tile(board)["look"] == "attached", "the job is no longer kept"

    play(monkeypatch, act)


def test_sends_orders_and_returns_their_answers(monkeypatch: pytest.MonkeyPatch) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        assert await source.order("north", ORDER, "the test") == Answer(True)
        topic, order = client.published[0]
        assert topic == "qnrescue/north/orders/order-1"
        assert 0 < order.pop("not_after") - time.time() <= 60
        assert order == {"action": "restore", "device": ECID, "bundle": "a.ipsw",
                         "options": {"erase": True}}
        client.reply = answer_message("x", "the job has ended")
        assert await source.cancel("north", "job-1", "me") == Answer(False, "the job has ended")
        topic, order = client.published[1]
        assert topic.startswith("qnrescue/north/orders/")
        assert (order["action"], order["job"]) == ("cancel", "job-1")

    play(monkeypatch, act)


def test_an_order_that_waits_for_its_answer_is_not_sent_again(
        monkeypatch: pytest.MonkeyPatch) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        client.reply = ""
        orders = [asyncio.create_task(source.order("north", ORDER, "the test")) for _ in range(2)]
        await asyncio.sleep(0.01)
        client.say("qnrescue/south/answers/order-1", answer_message("order-1", "forged"),
                   kept=False)
        client.say("qnrescue/north/answers/order-1", answer_message("order-1", ""), kept=False)
        assert await asyncio.gather(*orders) == [Answer(True)] * 2
        assert len(client.published) == 1

    play(monkeypatch, act)


def test_says_if_a_station_does_not_answer(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(module, "_ANSWER_SECONDS", 0.05)

    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        client.reply = ""
        answer = await source.order("north", ORDER, "the test")
        assert not answer.accepted and "may still carry it out" in answer.reason
        assert not answer.is_known

    play(monkeypatch, act)


def test_keeps_the_steps_that_it_sees(monkeypatch: pytest.MonkeyPatch) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        for step, seconds in (("Booting", 6.0), ("Flashing", 9.0)):
            client.say("qnrescue/north/jobs/job-1", job_message(job(step=step, seconds=seconds)),
                       kept=False)
        await asyncio.sleep(0.01)
        papers = await source.papers("north", "job-1")
        assert papers.steps == (Step("Booting", 5.0), Step("Flashing", 9.0))
        assert papers.file is None and "at the station" in papers.note

    play(monkeypatch, act)


def test_keeps_no_more_steps_than_a_restore_has(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(module, "_MOST_STEPS", 3)

    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        for number in range(9):
            client.say("qnrescue/north/jobs/job-1", job_message(job(step=f"step {number}")))
        await asyncio.sleep(0.01)
        steps = (await source.papers("north", "job-1")).steps
        assert [step.name for step in steps] == ["Booting", "step 0", "step 1"]

    play(monkeypatch, act)


def test_rubbish_changes_nothing(monkeypatch: pytest.MonkeyPatch) -> None:
    async def act(source: BrokerSource, client: TestClient, board: Board) -> None:
        before = board.view(0)
        for topic in ("qnrescue/north/station", f"qnrescue/north/devices/{ECID}",
                      "qnrescue/north/devices/rubbish", "qnrescue/north/jobs/job-1",
                      "qnrescue/no station/availability", "qnrescue/north/answers/order-1"):
            client.say(topic, "rubbish")
        await asyncio.sleep(0.01)
        assert board.view(0) == before

    play(monkeypatch, act)
