"""The screen of a fleet, with Mosquitto, a station and the page's requests."""

from __future__ import annotations

import json
import time
from collections.abc import Iterator
from pathlib import Path

import pytest

from bench_of_tests import TestBench, wait_until
from fleet_of_tests import DEVICE, OTHER_DEVICE
from mosquitto_of_tests import Client, Mosquitto, Service
from page_of_tests import NAME, Screen
from qnrescue.jobs import new_job_id

pytestmark = pytest.mark.full


@pytest.fixture
def service(bench: TestBench, broker: Mosquitto) -> Iterator[Service]:
    """Gives a station with a bundle."""
    service = Service(bench, broker.port)
    service.bundle("report 3 10", bench.gate(), "report 5 50", "complete")
    yield service
    service.kill()


@pytest.fixture
def screen(tmp_path: Path, broker: Mosquitto, service: Service) -> Iterator[Screen]:
    """Gives a screen that shows the station with its bundle."""
    screen = Screen(tmp_path / "screen", "--broker", f"mqtt://127.0.0.1:{broker.port}")
    wait_until(lambda: screen.is_complete())
    yield screen
    screen.close()


def test_orders_a_restore_and_shows_what_becomes_of_it(service: Service, screen: Screen) -> None:
    assert screen.tile()["look"] == "attached"
    assert screen.restore() == (200, {"accepted": True, "reason": "", "is_known": True})
    wait_until(lambda: (screen.tile()["look"], screen.tile()["text"]) == ("running", "step 3"))
    status, answer = screen.restore()
    assert (status, answer["accepted"]) == (409, False)
    assert answer["reason"].startswith("the device has a job already")
    service.bench.go()
    wait_until(lambda: screen.tile()["look"] == "succeeded")
    job = screen.job(screen.tile()["job"])
    assert [step["name"] for step in job["steps"]][:1] == ["step 3"]
    assert (job["job"]["device"], job["job"]["bundle"]) == (DEVICE, "a.ipsw")
    assert service.starts() == [DEVICE]


def test_cancels_a_restore(service: Service, screen: Screen) -> None:
    assert screen.restore()[0] == 200
    wait_until(lambda: screen.tile()["look"] == "running")
    job = screen.tile()["job"]
    assert screen.post("cancel", id=job)[1]["accepted"]
    wait_until(lambda: screen.tile()["look"] == "cancelled")
    status, answer = screen.post("cancel", id=job)
    assert (status, answer["reason"]) == (409, "the job has ended: cancelled")


def test_a_station_that_dies_is_offline_since_its_last_word(
        service: Service, screen: Screen) -> None:
    service.kill()
    wait_until(lambda: not screen.head()["online"])
    assert 0 <= time.time() - screen.head()["heard"] < 600
    assert screen.restore()[1]["reason"] == "the station is offline"
    assert screen.tile()["look"] == "attached"
    service.start()
    wait_until(lambda: screen.is_complete())


@pytest.mark.parametrize("forgets", [False, True])
def test_the_broker_is_killed_and_comes_back(broker: Mosquitto, service: Service, screen: Screen,
                                             forgets: bool) -> None:
    assert screen.restore()[0] == 200
    wait_until(lambda: screen.tile()["look"] == "running")
    broker.kill()
    wait_until(lambda: screen.notice == "no connection to the broker")
    assert not screen.head()["online"]
    assert screen.restore(OTHER_DEVICE)[0] == 409
    if forgets:
        (broker.folder / "mosquitto.db").unlink(missing_ok=True)
    service.bench.go()
    service.bench.end_of(screen.tile()["job"])
    broker.start()
    wait_until(lambda: screen.is_complete() and screen.tile()["look"] == "succeeded")
    assert service.starts() == [DEVICE]


def test_a_screen_that_was_there_before_the_broker(tmp_path: Path, broker: Mosquitto,
                                                   service: Service) -> None:
    broker.kill()
    screen = Screen(tmp_path / "screen", "--broker", f"mqtt://127.0.0.1:{broker.port}")
    try:
        wait_until(lambda: screen.notice)
        assert (screen.notice, screen.stations) == ("not connected to the broker yet", {})
        broker.start()
        wait_until(lambda: screen.is_complete())
    finally:
        screen.close()


def test_a_screen_that_the_broker_refuses(tmp_path: Path) -> None:
    broker = Mosquitto(tmp_path / "broker", "listener PORT 127.0.0.1", "allow_anonymous false")
    screen = Screen(tmp_path / "screen", "--broker", f"mqtt://127.0.0.1:{broker.port}")
    try:
        wait_until(lambda: "the broker refuses the screen" in screen.notice)
        time.sleep(3)  # it tries again, and the notice stays
        assert "the broker refuses the screen" in screen.notice
    finally:
        screen.close()
        broker.kill()


def test_what_is_emptied_vanishes(broker: Mosquitto, service: Service, screen: Screen) -> None:
    client = Client(broker.port, filters=())
    service.bench.go()
    assert screen.restore(OTHER_DEVICE)[0] == 200
    wait_until(lambda: screen.tile(OTHER_DEVICE)["look"] == "succeeded")
    job = screen.tile(OTHER_DEVICE)["job"]
    service.kill()
    wait_until(lambda: not screen.head()["online"])
    client.publish(f"qnrescue/{NAME}/jobs/{job}", b"", retain=True)
    wait_until(lambda: screen.tile(OTHER_DEVICE)["look"] == "attached")
    for topic in ("availability", "station", f"devices/{DEVICE}"):
        client.publish(f"qnrescue/{NAME}/{topic}", b"", retain=True)
    wait_until(lambda: not screen.tile() and screen.tile(OTHER_DEVICE))
    client.publish(f"qnrescue/{NAME}/devices/{OTHER_DEVICE}", b"", retain=True)
    wait_until(lambda: not screen.stations)
    client.close()


def test_rubbish_of_another_client_changes_nothing(broker: Mosquitto, service: Service,
                                                   screen: Screen) -> None:
    client = Client(broker.port, filters=())
    before = json.dumps(screen.stations)
    for topic in (f"{NAME}/station", f"{NAME}/devices/{DEVICE}", f"{NAME}/jobs/{new_job_id()}",
                  f"{NAME}/answers/x", "<b>/availability", f"{NAME}/devices/<b>",
                  "other/station"):
        for payload in (b"rubbish", b"\xff" * 5_000_000, b"[" * 100_000,
                        b'{"time": 1' + b"0" * 400 + b"}"):
            client.publish(f"qnrescue/{topic}", payload, retain=True)
    assert screen.restore(bundle="b.ipsw")[1]["reason"] == "the station has no such bundle"
    client.publish("qnrescue/other/availability", "online", retain=True)
    wait_until(lambda: "other" in screen.stations)
    assert set(screen.stations) == {NAME, "other"}
    assert json.dumps({NAME: screen.stations[NAME]}) == before
    client.close()


def test_a_job_of_the_bench_itself(service: Service, screen: Screen) -> None:
    job = service.bench.restore("complete")
    wait_until(lambda: screen.tile(job.device).get("look") == "succeeded")
