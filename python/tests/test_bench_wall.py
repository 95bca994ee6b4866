from __future__ import annotations

from dataclasses import replace

import pytest

from qnrescue.bench.display import Look, Row
from qnrescue.bench.slots import Slots
from qnrescue.bench.visits import Phase, Visit
from qnrescue.bench.wall import Wall
from qnrescue.events import DeviceInfo
from qnrescue.jobs import Job, JobOrder, JobState

A, B = "A" * 16, "B" * 16
LEFT, RIGHT = 0x14200000, 0x14300000
SLOTS = Slots({RIGHT: "right", LEFT: "left"})


def info(device: str, location: int = 0) -> DeviceInfo:
    return DeviceInfo(device, 0, 0, 0, 0, 0, location, "F4G")


def job(device: str, name: str, state: JobState) -> Job:
    return Job(name, JobOrder(device, "/x.ipsw"), state, "me", 1, 0.0)


@pytest.fixture
def wall() -> Wall:
    """Returns a wall with the device A in the slot on the left."""
    wall = Wall(SLOTS, True)
    wall.note_device(info(A, LEFT))
    wall.note_arrival(A)
    return wall


def shown(wall: Wall, *visits: Visit) -> list[tuple[str, Look, str]]:
    rows: list[Row] = wall.rows({visit.ecid: visit for visit in visits})
    return [(row.slot, row.look, row.device) for row in rows]


def test_named_slots_come_first_in_their_order(wall: Wall) -> None:
    wall.note_arrival(B)
    assert shown(wall, Visit(A, "a"), Visit(B, "b")) == [
        ("right", Look.EMPTY, ""), ("left", Look.WAITING, A), ("", Look.WAITING, B)]


def test_a_device_is_in_one_slot(wall: Wall) -> None:
    wall.note_device(info(A, RIGHT))
    assert shown(wall, Visit(A, "a")) == [("right", Look.WAITING, A), ("left", Look.EMPTY, "")]


def test_a_device_without_a_slot_leaves_the_wall_when_it_has_gone(wall: Wall) -> None:
    wall.note_arrival(B)
    wall.note_departure(B)
    assert [device for _, _, device in shown(wall, Visit(A, "a"))] == ["", A]


def test_a_slot_shows_what_became_of_its_last_device(wall: Wall) -> None:
    wall.note_job(job(A, "1", JobState.SUCCEEDED))
    wall.note_departure(A)
    (_, row) = wall.rows({})
    assert (row.look, row.device, row.text) == (Look.SUCCEEDED, A, "gone")


def test_a_refused_job_does_not_hide_the_one_that_runs(wall: Wall) -> None:
    done = Visit(A, "1", Phase.DONE)
    assert wall.note_job(job(A, "1", JobState.RUNNING))
    assert not wall.note_job(job(A, "1", JobState.RUNNING))
    assert wall.note_job(job(A, "2", JobState.REFUSED))
    assert shown(wall, done)[1] == ("left", Look.RUNNING, A)
    wall.note_job(job(A, "3", JobState.QUEUED))
    assert shown(wall, done)[1] == ("left", Look.QUEUED, A)


def test_a_device_that_waits_says_why(wall: Wall) -> None:
    wall.note_job(replace(job(A, "1", JobState.FAILED), reason="no answer"))
    (_, row) = wall.rows({A: Visit(A, "1", repeats="1")})
    assert (row.look, row.text) == (Look.WAITING, "again, after: no answer")


def test_without_restores_a_device_is_attached() -> None:
    wall = Wall(SLOTS, False)
    wall.note_device(info(A, LEFT))
    wall.note_arrival(A)
    assert shown(wall, Visit(A, "a"))[1] == ("left", Look.ATTACHED, A)
