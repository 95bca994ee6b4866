"""A station of a fleet without a broker, for tests."""

from __future__ import annotations

import json
import time
from collections.abc import Callable, Sequence
from concurrent.futures import ThreadPoolExecutor
from importlib import resources
from typing import Any

import jsonschema

from bench_of_tests import FAKE_TOOL, TestBench, wait_until
from qnrescue.bench.findings import Finding
from qnrescue.bench.polling import Poll
from qnrescue.bench.slots import Slots
from qnrescue.events import DeviceInfo
from qnrescue.fleet.bridge import Bridge
from qnrescue.fleet.clerk import Clerk
from qnrescue.fleet.settings import Broker, Settings
from qnrescue.tool import Tool

DEVICE, OTHER_DEVICE = "001E2D4C0A91C026", "000A35D83C60802E"
STATION = "bench-07"
FINDING = Finding("bench-space", "ok", "Much is free", "", "docs/bench-doctor.md#bench-space")


def schema_of(topic: str) -> str:
    """Returns the name of the schema for the messages of a topic; empty if they are no JSON."""
    kind = topic.split("/")[2]
    return "" if kind == "availability" else kind.removesuffix("s")


def validate(name: str, value: Any) -> None:
    """Raises ValidationError unless the schema of the package allows the value."""
    text = resources.files("qnrescue.fleet").joinpath(f"schemas/{name}.json").read_text("utf-8")
    jsonschema.validate(value, json.loads(text))


def message(**changes: object) -> dict[str, Any]:
    """Returns an order to restore the device, with changes; None removes a key."""
    value = {"action": "restore", "device": DEVICE, "bundle": "a.ipsw",
             "not_after": time.time() + 600, **changes}
    return {key: each for key, each in value.items() if each is not None}


class TestBroker:
    """What a broker has and gets, and the connection to it. Each message fits its schema."""

    __test__ = False

    def __init__(self) -> None:
        self.kept: dict[str, str] = {}
        self.sent: list[tuple[str, str]] = []
        self.filters: set[str] = set()
        self.is_slow = False  # in saying that it has a message
        self.late: list[Callable[[], None]] = []

    def subscribe(self, filters: Sequence[str]) -> None:
        self.filters |= set(filters)

    def unsubscribe(self, filters: Sequence[str]) -> None:
        self.filters -= set(filters)

    def publish(self, topic: str, payload: str, *, retain: bool,
                then: Callable[[], None] | None = None) -> None:
        name = topic.removeprefix(f"qnrescue/{STATION}/")
        if payload and schema_of(topic):
            validate(schema_of(topic), json.loads(payload))
        self.sent.append((name, payload))
        if retain and payload:
            self.kept[name] = payload
        elif retain:
            self.kept.pop(name, None)
        if then is not None:
            self.late.append(then)
        if not self.is_slow:
            self.say_received()

    def say_received(self) -> None:
        """Says that it has all messages."""
        late, self.late = self.late, []
        for then in late:
            then()

    def answers(self, order_id: str) -> list[dict[str, Any]]:
        """Returns the answers to an order."""
        return [json.loads(payload) for topic, payload in self.sent
                if topic == f"answers/{order_id}"]


class Station:
    """A station with its bridge."""

    def __init__(self, bench: TestBench, **settings: Any) -> None:
        self.bench = bench
        self.bundles = bench.path / "bundles"
        self.bundles.mkdir(exist_ok=True)
        self.settings = Settings(STATION, Broker("127.0.0.1", 1, False), self.bundles, **settings)
        self.pool = ThreadPoolExecutor(2)
        self.broker = TestBroker()
        self.poll: Poll | None = Poll(frozenset({DEVICE, OTHER_DEVICE}))
        self.slots = Slots({7: "left"})
        self.start()

    def start(self) -> None:
        """Begins with a new bridge, as after an end of the program, and connects it."""
        clerk = Clerk(self.bench.desk, self.settings, Tool(FAKE_TOOL), FAKE_TOOL, self.pool)
        self.bridge = Bridge(self.bench.desk, self.settings, clerk, self.slots, lambda: [FINDING],
                             self.pool)
        self.bridge.enter(self.broker)

    def bundle(self, *actions: str, name: str = "a.ipsw") -> None:
        """Makes a bundle for which the double of the tool does these actions."""
        (self.bundles / name).write_text("\n".join(actions))

    def receive(self, order_id: str, value: object) -> None:
        """Lets an order come."""
        payload = value if isinstance(value, bytes) else json.dumps(value).encode()
        self.bridge.receive(f"qnrescue/{STATION}/orders/{order_id}", payload, False)

    def step(self) -> None:
        """Lets the bridge do what there is to do."""
        self.bridge.step(self.poll)

    def step_until(self, condition: Callable[[], object]) -> None:
        """Lets the bridge go on until the condition holds."""
        def step() -> object:
            self.step()
            return condition()
        wait_until(step)

    def answer(self, order_id: str, value: object) -> tuple[str, str]:
        """Lets an order come, and returns the answer to it and the reason."""
        self.receive(order_id, value)
        self.step_until(lambda: self.broker.answers(order_id))
        answer = self.broker.answers(order_id)[-1]
        return answer["answer"], answer["reason"]

    def job(self, order_id: str) -> dict[str, Any]:
        """Returns the job as the broker has it; empty if it does not have it."""
        job: dict[str, Any] = json.loads(self.broker.kept.get(f"jobs/{order_id}", "{}"))
        return job

    def device(self, ecid: str = DEVICE) -> dict[str, Any]:
        """Returns the device as the broker has it; empty if it does not have it."""
        device: dict[str, Any] = json.loads(self.broker.kept.get(f"devices/{ecid}", "{}"))
        return device

    def starts(self) -> list[str]:
        """Returns the ECIDs of the restores that were started."""
        path = self.bundles / "starts"
        return path.read_text().split() if path.exists() else []

    def close(self) -> None:
        """Ends everything."""
        self.pool.shutdown()
        self.bench.go()
        for job in self.bench.desk.journal.jobs():
            self.bench.desk.cancel(job.id)


def info(ecid: str = DEVICE) -> DeviceInfo:
    """Returns what a device is."""
    return DeviceInfo(ecid, 1, 2, 3, 4, 5, location_id=7, serial_number="C8QX2K0YN7",
                      product_string="Apple Mobile Device (Recovery Mode)")
