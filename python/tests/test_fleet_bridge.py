"""A station without a broker: what becomes of orders, and what is published."""

from __future__ import annotations

import hashlib
import json
import os
import sqlite3
import time
from collections.abc import Iterator
from pathlib import Path
from types import SimpleNamespace

import pytest

from bench_of_tests import TestBench, wait_until
from fleet_of_tests import DEVICE, OTHER_DEVICE, Station, TestBroker, info, message
from qnrescue import supervisor
from qnrescue.bench.polling import Poll
from qnrescue.database import JournalError
from qnrescue.fleet import presence
from qnrescue.jobs import JobState
from qnrescue.journal import Journal
from qnrescue.tool import Tool

DAY = 86400


@pytest.fixture
def station(bench: TestBench) -> Iterator[Station]:
    """Gives a connected station."""
    station = Station(bench)
    yield station
    station.close()


# Restores


def test_an_order_becomes_a_job(station: Station) -> None:
    station.bundle("report 3 1", "complete")
    station.poll = Poll(frozenset({DEVICE}), {DEVICE: info()})
    assert station.answer("order-1", message()) == ("accepted", "")
    station.step_until(lambda: station.job("order-1")["state"] == "succeeded")
    job = station.bench.job("order-1")
    assert (job.device, job.asked_by, job.order.slot) == (DEVICE, "order order-1 of the fleet",
                                                          "left")
    assert station.starts() == [DEVICE]


def test_an_order_that_comes_twice_starts_once(station: Station) -> None:
    station.bundle("complete")
    order = message()
    for _ in range(2):
        station.receive("order-1", order)
    station.step_until(lambda: station.job("order-1").get("state") == "succeeded")
    assert station.answer("order-1", order) == ("accepted", "")
    assert station.starts() == [DEVICE]
    assert len(station.broker.answers("order-1")) == 2


def test_the_same_id_with_another_order(station: Station) -> None:
    station.bundle("complete")
    assert station.answer("order-1", message()) == ("accepted", "")
    station.receive("order-1", message(device=OTHER_DEVICE))
    station.step()
    assert station.broker.answers("order-1")[-1]["reason"] == "another order has this id"
    station.step_until(lambda: station.job("order-1")["state"] == "succeeded")
    assert station.starts() == [DEVICE]


def test_an_order_that_was_refused_stays_refused(station: Station) -> None:
    order = message()
    refused = "refused", "the station has no bundle a.ipsw"
    assert station.answer("order-1", order) == refused
    station.bundle("complete")
    assert station.answer("order-1", order) == refused
    assert station.answer("order-2", order) == ("accepted", "")


def test_a_local_job_with_the_id_of_an_order(station: Station) -> None:
    job = station.bench.restore("complete")
    station.bundle("complete")
    assert station.answer(job.id, message()) == ("refused", "another job has this id")
    assert not station.starts()


@pytest.mark.parametrize("order_id", ["..", "-a", "a b", "a" * 65, "NUL", "con.a", "a\u2028b"])
def test_what_is_no_id(station: Station, order_id: str) -> None:
    station.bundle("complete")
    assert station.answer(order_id, message()) == ("refused",
                                                   f"not an id of a job: {order_id!r}")


def test_an_id_with_a_dot(station: Station) -> None:
    """Some brokers would make another topic of it."""
    station.bundle("complete")
    assert station.answer("order.1", message()) == ("refused",
                                                    "an id of an order has no dot: 'order.1'")
    assert not station.bench.desk.journal.jobs()


def test_a_device_that_is_not_there(station: Station) -> None:
    station.bundle("complete")
    assert station.answer("order-1", message(device="0" * 16)) == (
        "refused", "the device is not at this station")


def test_a_device_that_has_a_job(station: Station) -> None:
    station.bundle("report 3 1", station.bench.gate(), "complete")
    assert station.answer("order-1", message()) == ("accepted", "")
    refused = "refused", "the device has a job already: order-1"
    assert station.answer("order-2", message()) == refused
    station.step_until(lambda: station.job("order-2").get("state") == "refused")
    station.bench.go()
    station.step_until(lambda: station.job("order-1")["state"] == "succeeded")
    assert station.answer("order-2", message(not_after=None)) == ("refused",
                                                                  "another order has this id")


def test_an_order_waits_until_the_devices_are_known(station: Station) -> None:
    station.bundle("complete")
    station.poll = None
    station.receive("order-1", message())
    for _ in range(5):
        station.step()
    assert not station.broker.answers("order-1")
    station.poll = Poll(frozenset({DEVICE}))
    station.step_until(lambda: station.broker.answers("order-1"))


def test_the_devices_cannot_be_listed(station: Station) -> None:
    station.poll = Poll(None, fault="the tool cannot be started")
    assert station.answer("order-1", message()) == ("refused", "the tool cannot be started")
    assert json.loads(station.broker.kept["station"])["fault"] == "the tool cannot be started"


@pytest.mark.parametrize("seconds, why", [(-1, "it is too late"), (2 * DAY, "more than 86400 s")])
def test_the_time_of_an_order(station: Station, seconds: float, why: str) -> None:
    station.bundle("complete")
    answer, reason = station.answer("order-1", message(not_after=time.time() + seconds))
    assert answer == "refused" and why in reason
    assert not station.bench.desk.journal.jobs()


def test_yesterdays_order_that_was_kept_in_the_journal(station: Station) -> None:
    station.bundle("complete")
    station.poll = None  # the station goes before it can answer
    station.receive("order-1", message(not_after=time.time() + 1))
    station.step()
    time.sleep(1.1)
    station.poll = Poll(frozenset({DEVICE}))
    station.start()
    station.step()
    assert "it is too late" in station.broker.answers("order-1")[0]["reason"]


def test_yesterdays_job_does_not_start(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    station.bundle("complete")
    with monkeypatch.context() as patch:
        patch.setattr("qnrescue.desk.ensure_supervisor", lambda folder: None)
        patch.setattr("qnrescue.fleet.bridge.ensure_supervisor", lambda folder: None)
        assert station.answer("order-1", message(not_after=time.time() + 1)) == ("accepted", "")
    time.sleep(1.1)
    supervisor.ensure_supervisor(station.bench.desk.folder)
    station.step_until(lambda: station.job("order-1")["state"] == "refused")
    assert station.job("order-1")["reason"] == "it is too late to start"
    assert not station.starts()


# Bundles and options


def test_a_bundle_with_its_digest(station: Station) -> None:
    station.bundle("complete")
    digest = hashlib.sha256((station.bundles / "a.ipsw").read_bytes()).hexdigest()
    wrong = "0" * 64
    assert station.answer("order-1", message(sha256=wrong)) == (
        "refused", f"the bundle has another SHA-256: {digest}")
    assert station.answer("order-2", message(sha256=digest.upper())) == ("accepted", "")


def test_a_bundle_that_was_changed_is_read_again(station: Station) -> None:
    station.bundle("complete")
    digest = hashlib.sha256((station.bundles / "a.ipsw").read_bytes()).hexdigest()
    assert station.answer("order-1", message(sha256=digest)) == ("accepted", "")
    station.bundle("failure")
    answer, reason = station.answer("order-2", message(sha256=digest, device=OTHER_DEVICE))
    assert "another SHA-256" in reason


def test_a_folder_as_a_bundle(station: Station) -> None:
    (station.bundles / "a.ipsw").mkdir()
    assert station.answer("order-1", message(sha256="0" * 64)) == (
        "refused", "the bundle is a folder, which has no SHA-256")
    assert station.answer("order-2", message()) == ("accepted", "")


def test_a_link_out_of_the_folder(station: Station) -> None:
    outside = station.bench.path / "outside.ipsw"
    outside.write_text("complete")
    (station.bundles / "a.ipsw").symlink_to(outside)
    assert station.answer("order-1", message()) == ("refused", "the station has no bundle a.ipsw")


def test_a_pipe_is_no_bundle(station: Station) -> None:
    os.mkfifo(station.bundles / "a.ipsw")
    assert station.answer("order-1", message(sha256="0" * 64)) == (
        "refused", "the station has no bundle a.ipsw")


def test_erasing_has_to_be_allowed(bench: TestBench, station: Station) -> None:
    station.bundle("complete")
    order = message(options={"erase": True})
    assert station.answer("order-1", order) == (
        "refused", "the settings of the station do not allow erasing")
    allowing = Station(bench, allow_erase=True)
    assert allowing.answer("order-2", order) == ("accepted", "")
    allowing.close()
    assert bench.job("order-2").order.erase


# The other orders


def test_cancel(station: Station) -> None:
    station.bundle("report 3 1", "wait 600")
    station.answer("order-1", message())
    station.step_until(lambda: station.job("order-1")["step"])
    cancel = {"action": "cancel", "job": "order-1", "not_after": time.time() + 60}
    assert station.answer("cancel-1", cancel) == ("accepted", "")
    station.step_until(lambda: station.job("order-1")["state"] == "cancelled")
    assert station.answer("cancel-1", cancel) == ("accepted", "")
    assert station.answer("cancel-2", cancel) == ("refused", "the job has ended: cancelled")
    assert station.answer("cancel-3", {**cancel, "job": "x"}) == ("refused",
                                                                  "there is no such job")
    assert "too late" in station.answer("cancel-4", {**cancel, "not_after": 1})[1]


EXIT = {"action": "exit-recovery", "device": DEVICE}


def test_exit_recovery(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    asked: list[str] = []
    monkeypatch.setattr(Tool, "exit_recovery", lambda self, ecid: asked.append(ecid))
    assert station.answer("exit-1", {**EXIT, "not_after": time.time() + 60}) == ("accepted", "")
    assert asked == [DEVICE]


def test_exit_recovery_with_the_tool(station: Station) -> None:
    station.step()
    station.poll = None  # it is answered without a further look at the devices
    assert station.answer("exit-1", {**EXIT, "not_after": time.time() + 60}) == ("accepted", "")


def test_exit_recovery_fails(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    def fail(self: Tool, ecid: str) -> None:
        raise OSError("no such program")
    monkeypatch.setattr(Tool, "exit_recovery", fail)
    assert station.answer("exit-1", {**EXIT, "not_after": time.time() + 60}) == (
        "refused", "no such program")


def test_a_device_under_restore_does_not_exit_recovery(station: Station) -> None:
    station.bundle("report 3 1", station.bench.gate(), "complete")
    station.answer("order-1", message())
    assert station.answer("exit-1", {**EXIT, "not_after": time.time() + 60}) == (
        "refused", "the device has a job: order-1")


# Ends of the program and of the connection


class _Killed(BaseException):
    pass


@pytest.mark.parametrize("path", ["Journal.submit", "Journal.answer", "Journal.record_delivery"])
@pytest.mark.parametrize("when", ["before", "after"])
def test_the_bridge_is_killed_at_an_instant(station: Station, monkeypatch: pytest.MonkeyPatch,
                                            path: str, when: str) -> None:
    station.bundle("complete")
    name = path.split(".")[1]
    original = getattr(Journal, name)

    def deadly(self: Journal, *values: object) -> object:
        if when == "before":
            raise _Killed
        original(self, *values)
        raise _Killed

    station.receive("order-1", message())
    with monkeypatch.context() as patch:
        patch.setattr(Journal, name, deadly)
        with pytest.raises(_Killed):
            station.step()
            station.step()
    station.broker = TestBroker()
    station.start()
    station.step_until(lambda: station.job("order-1").get("state") == "succeeded")
    answers = station.broker.answers("order-1")
    assert [each["answer"] for each in answers] == (
        [] if (path, when) == ("Journal.record_delivery", "after") else ["accepted"])
    assert station.starts() == [DEVICE]


def test_a_job_that_was_ordered_is_accepted_whatever_came_since(
        station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    """The program was killed before the answer, and the order would be refused now."""
    station.bundle("complete")
    station.receive("order-1", message(not_after=time.time() + 1))
    with monkeypatch.context() as patch:
        patch.setattr(Journal, "answer", lambda *_: None)
        station.step()
    station.bench.end_of("order-1")
    time.sleep(1.1)
    station.start()
    station.step()
    assert [each["answer"] for each in station.broker.answers("order-1")] == ["accepted"]


def test_a_cancellation_is_accepted_after_the_end_of_its_job(
        station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    station.bundle("report 3 1", "wait 600")
    station.answer("order-1", message())
    station.receive("cancel-1", {"action": "cancel", "job": "order-1",
                                 "not_after": time.time() + 60})
    with monkeypatch.context() as patch:
        patch.setattr(Journal, "answer", lambda *_: None)
        station.step()
    station.bench.end_of("order-1")
    station.start()
    station.step()
    assert station.broker.answers("cancel-1")[0]["answer"] == "accepted"


def test_the_answer_is_sent_again_if_the_broker_did_not_get_it(station: Station) -> None:
    station.broker.is_slow = True
    station.answer("order-1", message())
    station.bridge.leave()
    station.broker = TestBroker()
    station.bridge.enter(station.broker)
    assert len(station.broker.answers("order-1")) == 1
    station.bridge.leave()
    station.broker = TestBroker()
    station.bridge.enter(station.broker)
    assert not station.broker.answers("order-1")


def test_orders_are_taken_up_without_a_connection(station: Station) -> None:
    station.bundle("complete")
    station.receive("order-1", message())
    station.bridge.leave()
    wait_until(lambda: (station.step(), station.bench.desk.journal.undelivered())[1])
    assert station.bench.end_of("order-1").state is JobState.SUCCEEDED
    station.broker = TestBroker()
    station.bridge.enter(station.broker)
    assert station.broker.answers("order-1")[0]["answer"] == "accepted"
    assert station.job("order-1")["state"] == "succeeded"


def test_without_its_journal_the_station_takes_no_order(station: Station) -> None:
    """What the bridge raises keeps the message from being acknowledged."""
    desk = station.bench.desk
    other = sqlite3.connect(desk.journal.path, isolation_level=None)
    with Journal(desk.folder.path, busy_timeout=0.05) as impatient:
        patient, desk.journal = desk.journal, impatient
        other.execute("BEGIN IMMEDIATE")
        with pytest.raises(JournalError):
            station.receive("order-1", message())
        other.close()
        desk.journal = patient
    assert not desk.journal.unanswered()
    station.bundle("complete")
    assert station.answer("order-1", message()) == ("accepted", "")


def test_orders_are_forgotten_when_their_time_is_long_over(bench: TestBench) -> None:
    journal = bench.desk.journal
    journal.receive("old", b"1")
    journal.receive("waits", b"2")
    journal.answer("old", "{}")
    journal.forget_orders(time.time() + 1)
    assert [order.id for order in journal.unanswered()] == ["waits"]
    assert journal.receive("old", b"3").payload == b"3"


# What the broker keeps


def test_everything_is_published_after_each_connection(station: Station) -> None:
    station.bundle("complete")
    station.answer("order-1", message())
    station.step_until(lambda: station.job("order-1")["state"] == "succeeded")
    station.step_until(lambda: station.device()["state"] == "attached")
    first = station.broker.kept
    station.bridge.leave()
    station.broker = TestBroker()
    station.bridge.enter(station.broker)
    kept = station.broker.kept
    assert {key for key in kept} == {"availability", "station", "jobs/order-1",
                                     f"devices/{DEVICE}", f"devices/{OTHER_DEVICE}"}
    assert kept["availability"] == "online"
    assert {key: first[key] for key in kept if "/" in key} == {
        key: kept[key] for key in kept if "/" in key}
    assert station.broker.sent[-1] == ("availability", "online")


def test_everything_is_published_again_now_and_then(
        station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    """For those who join later, where the broker does not send them what it has kept."""
    jobs = [station.bench.restore("complete") for _ in range(2)]
    station.step_until(lambda: "station" in station.broker.kept and station.device())
    kept = dict(station.broker.kept)
    set_end(station.bench.desk.journal.path, jobs[1].id, time.time() - DAY - 60)
    station.broker.kept.clear()
    station.step()
    assert not station.broker.kept
    monkeypatch.setattr("qnrescue.fleet.bridge.REFRESH_SECONDS", 0.0)
    station.step()
    del kept[f"jobs/{jobs[1].id}"], kept["station"]  # that is published every minute
    assert station.broker.kept == kept
    monkeypatch.setattr("qnrescue.fleet.bridge.REFRESH_SECONDS", 600.0)
    station.broker.kept.clear()
    station.step()
    assert "availability" not in station.broker.kept


def test_the_station_names_only_bundles_that_can_be_ordered(station: Station) -> None:
    for name in (".a.ipsw.part", "-a", "b.ipsw", "CON", "\u00e4.ipsw"):
        station.bundle("complete", name=name)
    station.start()
    assert json.loads(station.broker.kept["station"])["bundles"] == ["b.ipsw"]


def test_the_station(station: Station) -> None:
    station.bundle("complete")
    station.step_until(lambda: json.loads(station.broker.kept["station"])["findings"])
    value = json.loads(station.broker.kept["station"])
    assert value["slots"] == [{"name": "left", "location": 7}]
    assert value["limits"]["allow_erase"] is False
    assert value["findings"][0]["id"] == "bench-space"
    assert abs(value["time"] - time.time()) < 600


def test_a_device_comes_and_goes(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    station.poll = Poll(frozenset({DEVICE}), {DEVICE: info()})
    station.step()
    device = station.device()
    assert (device["state"], device["serial_number"], device["slot"], device["job"]) == (
        "attached", "C8QX2K0YN7", "left", "")
    station.poll = Poll(frozenset())
    station.step()
    assert station.device() == {**device, "state": "away"}
    station.poll = Poll(frozenset({DEVICE}))
    station.step()
    assert station.device() == device
    monkeypatch.setattr(presence, "AWAY_SECONDS", 0.0)
    station.poll = Poll(frozenset())
    station.step()
    assert f"devices/{DEVICE}" not in station.broker.kept
    assert station.broker.sent.count((f"devices/{DEVICE}", "")) == 1
    station.start()  # the broker has said that it emptied the topic
    assert station.broker.sent.count((f"devices/{DEVICE}", "")) == 1


def test_a_topic_is_emptied_again_if_the_broker_may_not_have_done_so(
        station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    station.step()
    monkeypatch.setattr(presence, "AWAY_SECONDS", 0.0)
    station.broker.is_slow = True
    station.poll = Poll(frozenset({OTHER_DEVICE}))
    station.step()
    station.bridge.leave()
    station.broker = TestBroker()
    station.start()
    assert (f"devices/{DEVICE}", "") in station.broker.sent


def test_a_device_that_goes_while_there_is_no_connection(station: Station,
                                                         monkeypatch: pytest.MonkeyPatch) -> None:
    station.step()
    station.bridge.leave()
    monkeypatch.setattr(presence, "AWAY_SECONDS", 0.0)
    station.poll = Poll(frozenset())
    station.step()
    station.start()  # also the program was started anew
    assert f"devices/{DEVICE}" not in station.broker.kept


def test_a_device_under_restore_is_not_gone(station: Station,
                                            monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(presence, "AWAY_SECONDS", 0.0)
    station.bundle("report 3 1", station.bench.gate(), "complete")
    station.answer("order-1", message())
    station.poll = Poll(frozenset())
    station.step_until(lambda: station.job("order-1")["step"])
    assert (station.device()["state"], station.device()["job"]) == ("restoring", "order-1")
    station.bench.go()
    station.step_until(lambda: not station.device())


def test_the_list_of_devices_is_not_known_for_a_while(station: Station,
                                                      monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(presence, "AWAY_SECONDS", 0.0)
    station.step()
    station.poll = Poll(None, fault="the devices cannot be listed")
    station.step()
    assert station.device()["state"] == "attached"


def set_end(path: Path, job_id: str, ended_at: float) -> None:
    """Changes when a job ended."""
    connection = sqlite3.connect(path)
    with connection:
        connection.execute("UPDATE jobs SET ended_at = ? WHERE id = ?", (ended_at, job_id))
    connection.close()


def test_a_job_is_let_go_after_days(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    job = station.bench.restore("complete")
    station.step()
    assert station.job(job.id)
    monkeypatch.setattr("qnrescue.fleet.bridge._MINUTE", 0.0)
    path = station.bench.desk.journal.path
    set_end(path, job.id, time.time() - 7 * DAY + 60)
    station.step()
    assert station.job(job.id)
    set_end(path, job.id, time.time() - 7 * DAY - 60)
    for _ in range(3):
        station.step()
    assert not station.job(job.id)
    assert station.broker.sent.count((f"jobs/{job.id}", "")) == 1
    station.broker.kept[f"jobs/{job.id}"] = "{}"
    station.start()  # the program was away when the days were over
    assert not station.job(job.id)


def test_what_the_broker_has_kept_and_is_not_true(station: Station) -> None:
    """As after a journal that was lost, or set back."""
    job = station.bench.restore("complete")
    station.step()
    for topic in (f"jobs/{job.id}", "jobs/unknown", f"devices/{DEVICE}", "devices/" + "0" * 16):
        station.broker.kept[topic] = "{}"
        station.bridge.receive(f"qnrescue/bench-07/{topic}", b"{}", True)
        station.bridge.receive(f"qnrescue/bench-07/{topic}", b"", True)
        station.bridge.receive("qnrescue/bench-07/jobs/not-kept", b"{}", False)
    station.step()
    assert set(station.broker.kept) >= {f"jobs/{job.id}", f"devices/{DEVICE}"}
    assert not {"jobs/unknown", "devices/" + "0" * 16} & set(station.broker.kept)
    assert not any("not-kept" in topic for topic, _ in station.broker.sent)


def test_the_subscriptions(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    station.step()
    kept = {"qnrescue/bench-07/devices/+", "qnrescue/bench-07/jobs/+"}
    assert station.broker.filters == {"qnrescue/bench-07/orders/+"} | kept
    monkeypatch.setattr("qnrescue.fleet.bridge._KEPT_SECONDS", 0.0)
    station.step()
    assert station.broker.filters == {"qnrescue/bench-07/orders/+"}


def test_another_journal_is_published(station: Station) -> None:
    first = station.bench.restore("complete")
    station.step()
    station.bench.kill_supervisors()
    station.bench.desk.journal.replace_broken()
    station.broker.kept.clear()
    second = station.bench.restore("complete")
    station.step()
    assert station.job(second.id)
    assert station.job(first.id)  # from its record


def test_news_of_the_journal_are_published_without_a_look_at_the_devices(station: Station) -> None:
    station.step()
    station.poll = None
    station.bundle(station.bench.gate(), "complete")
    station.answer("order-1", message())
    station.bench.go()
    station.step_until(lambda: station.job("order-1").get("state") == "succeeded")
    station.step_until(lambda: station.device()["state"] == "attached")


def test_without_news_only_the_state_of_the_journal_is_read(
        station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    journal = station.bench.desk.journal
    station.step_until(lambda: json.loads(station.broker.kept["station"])["findings"])
    station.poll = None
    station.step()
    state = journal.state()
    monkeypatch.setattr(station.bridge, "_desk", SimpleNamespace(
        journal=SimpleNamespace(state=lambda: state), folder=station.bench.desk.folder))
    sent = len(station.broker.sent)
    station.step()
    station.step()
    assert len(station.broker.sent) == sent
