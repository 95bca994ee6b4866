"""A Mosquitto on this machine, what listens to it, and a line that can be cut, for tests."""

from __future__ import annotations

import contextlib
import getpass
import json
import os
import re
import socket
import ssl
import subprocess
import threading
import time
from collections.abc import Iterable, Mapping, Sequence
from pathlib import Path
from typing import Any

from paho.mqtt import client as mqtt

from bench_of_tests import FAKE_TOOL, TestBench, wait_until
from fleet_of_tests import schema_of, validate
from machine_of_tests import BENCH_PROGRAM
from qnrescue import processes

PROGRAM = "/usr/sbin/mosquitto"
PAGE = Path(__file__).parents[2] / "docs" / "fleet.md"


def free_port() -> int:
    """Returns a port that nobody listens at."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return int(probe.getsockname()[1])


def file_of_page(name: str) -> str:
    """Returns the content of a file that docs/fleet.md shows."""
    found = re.search(rf"`{re.escape(name)}`:\n\n((?:    .*\n|\n)+)", PAGE.read_text("utf-8"))
    assert found, name
    return re.sub("^    ", "", found[1], flags=re.MULTILINE)


class Mosquitto:
    """A broker, which forgets everything when it is killed unless it is told to keep it."""

    def __init__(self, folder: Path, *lines: str) -> None:
        folder.mkdir(parents=True, exist_ok=True)
        self.folder = folder
        self.port = free_port()
        # Started by root, it would become another user, who may not read the files of the test.
        text = "\n".join((*lines, f"user {getpass.getuser()}"))
        (folder / "mosquitto.conf").write_text(text.replace("PORT", str(self.port)) + "\n")
        self.start()

    @classmethod
    def open(cls, folder: Path) -> Mosquitto:
        """Starts one without users that keeps sessions and messages over its end."""
        return cls(folder, "listener PORT 127.0.0.1", "allow_anonymous true",
                   "max_queued_messages 0", "persistence true",
                   f"persistence_location {folder}/", "autosave_interval 1",
                   "autosave_on_changes true")

    def start(self) -> None:
        """Starts the broker."""
        with (self.folder / "mosquitto.log").open("ab") as log:
            self.process = subprocess.Popen(
                [PROGRAM, "-c", self.folder / "mosquitto.conf"], stdout=log,
                stderr=log)
        wait_until(self._listens)

    def _listens(self) -> bool:
        assert self.process.poll() is None, (self.folder / "mosquitto.log").read_text()
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def kill(self) -> None:
        """Kills the broker."""
        self.process.kill()
        self.process.wait()


class Client:
    """Listens to a broker, and sends. What stations send fits its schema."""

    def __init__(self, port: int, user: str = "", password: str = "", ca: Path | None = None,
                 filters: Sequence[str] = ("qnrescue/#",), will: str = "", name: str = "") -> None:
        self.got: list[tuple[str, bytes]] = []
        self.kept: dict[str, bytes] = {}  # what the broker had kept of it
        self.reason: int | None = None
        self.ended = False
        self._subscribed = not filters
        self._filters = filters
        self._acknowledged: set[int] = set()
        self._client: Any = _make(name or f"test-{time.monotonic_ns()}")
        self._client.on_connect = self._on_connect
        self._client.on_message = self._on_message
        self._client.on_publish = lambda _client, _data, mid, *_: self._acknowledged.add(mid)
        self._client.on_subscribe = lambda *_: setattr(self, "_subscribed", True)
        self._client.on_disconnect = lambda *_: setattr(self, "ended", True)
        if user:
            self._client.username_pw_set(user, password)
        if ca:
            self._client.tls_set_context(ssl.create_default_context(cafile=str(ca)))
        if will:
            self._client.will_set(will, "x", qos=1, retain=True)
        self._client.connect("127.0.0.1", port, 60)
        self._client.loop_start()
        wait_until(lambda: self.reason is not None or self.ended)
        wait_until(lambda: self._subscribed or self.reason or self.ended)

    def _on_connect(self, client: Any, _data: Any, _flags: Any, reason: Any, *_: Any) -> None:
        self.reason = int(getattr(reason, "value", reason))
        if not self.reason and self._filters:
            client.subscribe([(each, 1) for each in self._filters])

    def _on_message(self, _client: Any, _data: Any, message: Any) -> None:
        if message.retain:
            self.kept[message.topic] = bytes(message.payload)
        self.got.append((message.topic, bytes(message.payload)))

    def publish(self, topic: str, payload: str | bytes, retain: bool = False) -> None:
        """Sends a message, and waits until the broker has it."""
        self.publish_all([topic], payload, retain)

    def publish_all(self, topics: Iterable[str], payload: str | bytes, retain: bool) -> None:
        """Sends a message to each of the topics, and waits until the broker has them."""
        sent = {self._client.publish(topic, payload, qos=1, retain=retain).mid for topic in topics}
        wait_until(lambda: sent <= self._acknowledged)

    def order(self, order_id: str, value: object, station: str = "bench-07") -> None:
        """Sends an order."""
        payload = value if isinstance(value, bytes) else json.dumps(value).encode()
        self.publish(f"qnrescue/{station}/orders/{order_id}", payload)

    def latest(self, topic: str, station: str = "bench-07") -> Any:
        """Returns the latest message of a topic: JSON, a text, or None."""
        found = self._payloads(topic, station)
        return _content(topic, found[-1]) if found else None

    def all_of(self, topic: str, station: str = "bench-07") -> list[Any]:
        """Returns the messages of a topic: JSON, texts, or None for empty ones."""
        return [_content(topic, payload) for payload in self._payloads(topic, station)]

    def _payloads(self, topic: str, station: str) -> list[bytes]:
        full = f"qnrescue/{station}/{topic}"
        return [payload for each, payload in list(self.got) if each == full]

    def state(self, job_id: str) -> str:
        """Returns the state of a job; empty if it is not known."""
        job = self.latest(f"jobs/{job_id}")
        return job["state"] if job else ""

    def wait_for(self, topic: str) -> None:
        """Waits for a message of this topic."""
        wait_until(lambda: any(each == topic for each, _ in list(self.got)))

    def cut(self) -> None:
        """Ends the connection without a word."""
        self._client.loop_stop()
        self._client.socket().shutdown(socket.SHUT_RDWR)

    def close(self) -> None:
        """Ends the connection."""
        self._client.disconnect()
        self._client.loop_stop()


def _content(topic: str, payload: bytes) -> Any:
    """Returns what a message of a station's topic has: JSON, which fits its schema, or a text; None
    if it is empty."""
    schema = schema_of(f"qnrescue/any/{topic}")
    if not payload or not schema:
        return payload.decode() or None
    value = json.loads(payload)
    validate(schema, value)
    return value


def _make(name: str) -> Any:
    versions: Any = getattr(mqtt, "CallbackAPIVersion", None)
    named = {} if versions is None else {"callback_api_version": versions.VERSION2}
    make: Any = mqtt.Client
    return make(client_id=name, **named)


class CutLine:
    """A line to a port that can be made to pass nothing, or be cut."""

    def __init__(self, port: int) -> None:
        self._target = port
        self._passes = threading.Event()
        self._passes.set()
        self._sockets: list[socket.socket] = []
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = int(self._listener.getsockname()[1])
        self._threads = [threading.Thread(target=self._accept)]
        self._threads[0].start()

    def _accept(self) -> None:
        while True:
            try:
                left, _ = self._listener.accept()
            except OSError:
                return
            try:
                right = socket.create_connection(("127.0.0.1", self._target))
            except OSError:
                left.close()
                continue
            self._sockets += [left, right]
            for pair in ((left, right), (right, left)):
                self._threads.append(threading.Thread(target=self._pass, args=pair))
                self._threads[-1].start()

    def _pass(self, source: socket.socket, target: socket.socket) -> None:
        with source, contextlib.suppress(OSError):
            while data := source.recv(65536):
                self._passes.wait()
                target.sendall(data)
            _end(target)

    def stop(self) -> None:
        """Passes nothing from now on."""
        self._passes.clear()

    def go_on(self) -> None:
        """Passes again, also what has waited."""
        self._passes.set()

    def cut(self) -> None:
        """Ends the connections that there are."""
        _end(*self._sockets)

    def close(self) -> None:
        """Ends everything."""
        _end(self._listener)
        self._listener.close()
        self.go_on()
        self.cut()
        for each in self._threads:
            each.join()


def _end(*sockets: socket.socket) -> None:
    """Ends connections, also for the threads that read from them."""
    for each in sockets:
        with contextlib.suppress(OSError):
            each.shutdown(socket.SHUT_RDWR)


def write_settings(folder: Path, station: str, address: str, bundles: Path,
                   more: str = "") -> None:
    """Writes the settings of a station into the folder of its bench."""
    path = folder / "fleet.toml"
    path.touch(0o600)
    path.write_text(f'station = "{station}"\nbundles = "{bundles}"\nbroker = "{address}"\n{more}',
                    encoding="utf-8")


class Bridge:
    """The command serve as its own process."""

    def __init__(self, folder: Path, log: Path, *words: str,
                 environment: Mapping[str, str] | None = None) -> None:
        """Starts it for the bench in this folder; the words are further options."""
        self.log = log
        self._words = [BENCH_PROGRAM, "serve", "--folder", str(folder), *words]
        self._environment = environment
        self.start()

    def start(self) -> None:
        """Starts the bridge."""
        with self.log.open("ab") as log:
            self.process = subprocess.Popen(self._words, env=self._environment, stdout=log,
                                            stderr=log)

    def kill(self) -> None:
        """Kills the bridge."""
        self.process.kill()
        self.process.wait()


class Service(Bridge):
    """A bridge with the double of the tool."""

    def __init__(self, bench: TestBench, port: int, settings: str = "",
                 scheme: str = "mqtt") -> None:
        self.bench = bench
        self.bundles = bench.path / "bundles"
        self.bundles.mkdir(exist_ok=True)
        write_settings(bench.folder, "bench-07", f"{scheme}://127.0.0.1:{port}", self.bundles,
                       settings)
        tool = [f"--tool={word}" for word in FAKE_TOOL]
        super().__init__(bench.folder, bench.path / "serve.log", *tool)

    def bundle(self, *actions: str, name: str = "a.ipsw") -> None:
        """Makes a bundle for which the double of the tool does these actions."""
        (self.bundles / name).write_text("\n".join(actions))

    def starts(self) -> list[str]:
        """Returns the ECIDs of the restores that were started."""
        path = self.bundles / "starts"
        return path.read_text().split() if path.exists() else []

    def pids(self) -> list[int]:
        """Returns the processes of the bench: the bridge, supervisors and restores."""
        own = str(self.bench.folder), str(self.bundles)
        found = processes.find(lambda words: any(word.startswith(own) for word in words))
        return [each.pid for each in found if each.pid != os.getpid()]
