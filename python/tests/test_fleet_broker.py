"""A station with Mosquitto: orders, ends of bridge, broker and network, and lost power."""

from __future__ import annotations

import os
import random
import shutil
import signal
import time
from collections.abc import Iterator

import pytest

from bench_of_tests import TestBench, wait_until
from fleet_of_tests import DEVICE, OTHER_DEVICE, message
from mosquitto_of_tests import Client, CutLine, Mosquitto, Service
from qnrescue.desk import Desk
from qnrescue.jobs import JobState

pytestmark = pytest.mark.full


@pytest.fixture
def line(broker: Mosquitto) -> Iterator[CutLine]:
    """Gives the line between the station and the broker."""
    line = CutLine(broker.port)
    yield line
    line.close()


@pytest.fixture
def service(bench: TestBench, line: CutLine) -> Iterator[Service]:
    """Gives a station."""
    service = Service(bench, line.port)
    yield service
    service.kill()


@pytest.fixture
def client(broker: Mosquitto, service: Service) -> Iterator[Client]:
    """Gives an operator, when the station is online."""
    client = Client(broker.port)
    wait_until(lambda: client.latest("availability") == "online"
               and client.latest(f"devices/{DEVICE}"))
    yield client
    client.close()


def begin(service: Service, client: Client) -> None:
    """Orders a restore that waits for `go`, and waits until it has begun."""
    service.bundle("report 3 1", service.bench.gate(), "complete")
    client.order("order-1", message())
    wait_until(lambda: client.state("order-1") == "running"
               and client.latest("jobs/order-1")["step"])


def check_end(service: Service, client: Client, broker: Mosquitto) -> None:
    """Checks that the restore ends, was started once, and is what the broker has kept."""
    wait_until(lambda: client.state("order-1") == "succeeded")
    wait_until(lambda: client.latest(f"devices/{DEVICE}")["state"] == "attached")
    wait_until(lambda: client.latest("availability") == "online")
    assert service.starts() == [DEVICE]
    newcomer = Client(broker.port)
    wait_until(lambda: newcomer.state("order-1"))
    assert newcomer.state("order-1") == "succeeded"
    wait_until(lambda: newcomer.latest("availability"))
    assert newcomer.latest("availability") == "online"
    newcomer.close()


def test_an_order(service: Service, client: Client, broker: Mosquitto) -> None:
    service.bundle("report 3 1", "report 5 50", "complete")
    order = message()
    client.order("order-1", order)
    client.order("order-1", order)
    check_end(service, client, broker)
    assert client.latest("answers/order-1")["answer"] == "accepted"
    wait_until(lambda: client.latest("station")["bundles"] == ["a.ipsw", "starts"])


def test_a_stop_says_goodbye(service: Service, client: Client) -> None:
    service.process.terminate()
    assert service.process.wait(60) == 0
    wait_until(lambda: client.latest("availability") == "offline")


@pytest.mark.parametrize("payload", [b"", b"{", b"[" * 16000, b"x" * 5_000_000],
                         ids=["empty", "broken", "deep", "huge"])
def test_rubbish_is_refused_and_harms_nothing(service: Service, client: Client,
                                              broker: Mosquitto, payload: bytes) -> None:
    client.order("rubbish", payload)
    wait_until(lambda: client.latest("answers/rubbish"))
    assert client.latest("answers/rubbish")["answer"] == "refused"
    test_an_order(service, client, broker)


def test_the_bridge_is_killed_and_comes_back_at_once(service: Service, client: Client,
                                                     broker: Mosquitto) -> None:
    begin(service, client)
    service.kill()
    wait_until(lambda: client.latest("availability") == "offline")
    service.start()
    wait_until(lambda: client.latest("availability") == "online")
    service.bench.go()
    check_end(service, client, broker)


def test_the_bridge_is_killed_and_comes_back_after_the_end(service: Service, client: Client,
                                                           broker: Mosquitto) -> None:
    begin(service, client)
    service.kill()
    service.bench.go()
    service.bench.end_of("order-1")
    assert client.state("order-1") == "running"
    service.start()
    check_end(service, client, broker)


def test_orders_that_come_while_the_bridge_is_away(service: Service, client: Client,
                                                   broker: Mosquitto) -> None:
    service.bundle("complete")
    service.kill()
    client.order("order-0", message(not_after=time.time() + 0.5, device=OTHER_DEVICE))
    client.order("order-1", message())
    time.sleep(0.6)
    service.start()
    wait_until(lambda: client.latest("answers/order-0"))
    assert "it is too late" in client.latest("answers/order-0")["reason"]
    check_end(service, client, broker)


def test_the_broker_is_killed_and_comes_back(service: Service, client: Client,
                                             broker: Mosquitto) -> None:
    begin(service, client)
    broker.kill()
    (broker.folder / "mosquitto.db").unlink(missing_ok=True)  # it has forgotten everything
    service.bench.go()
    service.bench.end_of("order-1")
    client.got.clear()
    broker.start()
    check_end(service, client, broker)


def test_the_network_passes_nothing_for_longer_than_the_restore(
        service: Service, client: Client, broker: Mosquitto, line: CutLine) -> None:
    begin(service, client)
    line.stop()
    service.bench.go()
    service.bench.end_of("order-1")
    time.sleep(1)
    assert client.state("order-1") == "running"
    line.go_on()
    check_end(service, client, broker)


def test_the_network_is_cut(service: Service, client: Client, broker: Mosquitto,
                            line: CutLine) -> None:
    begin(service, client)
    line.stop()
    line.cut()
    client.order("order-1", b"another")
    service.bench.go()
    service.bench.end_of("order-1")
    line.go_on()
    check_end(service, client, broker)
    wait_until(lambda: client.latest("answers/order-1")["answer"] == "refused")


@pytest.mark.parametrize("seed", range(4))
def test_the_power_is_lost(service: Service, client: Client, seed: int) -> None:
    """The machine stops at a random instant: what the disk has then is all that is left."""
    bench = service.bench
    service.bundle("report 3 1", "wait 0.3", "report 5 10", "wait 0.3", "report 9 20", "wait 0.3",
                   "complete")
    order = message()
    client.order("order-1", order)
    time.sleep(random.Random(seed).uniform(0.0, 2.0))
    pids = {service.process.pid, *service.pids()}
    for number in (signal.SIGSTOP, signal.SIGKILL):
        for pid in pids | set(service.pids()):
            os.kill(pid, number)
        if number == signal.SIGSTOP:
            shutil.copytree(bench.folder, bench.path / "disk")
    service.process.wait()
    bench.desk.close()
    shutil.rmtree(bench.folder)
    shutil.copytree(bench.path / "disk", bench.folder)
    bench.desk = Desk(bench.folder)
    client.order("order-1", order)  # the operator has heard nothing, and sends it again
    service.start()
    wait_until(lambda: client.state("order-1") and JobState(client.state("order-1")).is_end
               and client.state("order-1") == bench.job("order-1").state)
    wait_until(lambda: client.latest("availability") == "online")
    assert len(service.starts()) <= 1
    assert service.starts() or client.state("order-1") == "interrupted"


def test_a_second_bridge_of_the_bench(service: Service, client: Client) -> None:
    first = service.process
    service.start()
    assert service.process.wait(60) == 4
    assert "another program connects this bench" in service.log.read_text()
    assert first.poll() is None
    first.kill()
    first.wait()


def test_what_is_ordered_here_is_seen_there(service: Service, client: Client) -> None:
    service.bundle("complete")
    job = service.bench.restore("complete")
    wait_until(lambda: client.state(job.id) == "succeeded")
