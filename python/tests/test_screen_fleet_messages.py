"""What the screen takes from a station."""

from __future__ import annotations

import json
from collections.abc import Callable
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from qnrescue.fleet.messages import answer_message, job_message
from qnrescue.screen.board import Device
from qnrescue.screen.fleet_messages import (MessageFault, read_answer, read_device, read_job,
                                            read_station)
from qnrescue.screen.source import Answer
from screen_of_tests import ECID, job

STATION = {"versions": {"qnrescue": "1", "python": "3", "system": "s"},
           "slots": [{"name": "left 1", "location": 7}], "limits": {"allow_erase": True},
           "bundles": ["a.ipsw"], "fault": "no list", "time": 1000.0,
           "findings": [{"id": "x", "word": "problem", "text": "no space"},
                        {"id": "y", "word": "warning", "text": "a warning"}]}
DEVICE = {"ecid": ECID, "state": "attached", "job": "", "serial_number": "F17", "product": "iPhone",
          "slot": "left 1", "since": 5.0}
JOB = json.loads(job_message(job()))
READERS: list[tuple[Callable[[bytes], Any], dict[str, Any]]] = [
    (lambda payload: read_station("north", payload), STATION),
    (lambda payload: read_device(ECID, payload), DEVICE),
    (lambda payload: read_job("job-1", payload), JOB)]


def encoded(value: object) -> bytes:
    """Returns the value as JSON."""
    return json.dumps(value).encode()


def test_reads_a_station() -> None:
    station, said = read_station("north", encoded(STATION))
    assert (station.slots, station.bundles, station.may_erase, said) == (
        ("left 1",), ("a.ipsw",), True, 1000.0)
    assert station.note == "no list; no space"
    assert read_station("north", encoded({**STATION, "findings": None}))[0].note == "no list"


def test_reads_a_device_and_a_job_and_an_answer() -> None:
    assert read_device(ECID, encoded(DEVICE)) == Device(ECID, "left 1", "F17", "iPhone", 5.0)
    assert read_job("job-1", job_message(job()).encode()) == job()
    assert read_answer(answer_message("x", "too late").encode()) == Answer(False, "too late")
    assert read_answer(answer_message("x", "").encode()) == Answer(True)


def test_a_job_under_another_id_is_refused() -> None:
    with pytest.raises(MessageFault):
        read_job("job-2", encoded(JOB))


@pytest.mark.parametrize("payload", [b"", b"\xff", b"[]", b"null", b"{}", b"[" * 100000,
                                     b'{"time": NaN}', b" " * (2 << 20)])
def test_refuses_rubbish(payload: bytes) -> None:
    for read, _ in READERS:
        with pytest.raises(MessageFault):
            read(payload)
    with pytest.raises(MessageFault):
        read_answer(payload)


@pytest.mark.parametrize("key", ["ordered_at", "seconds", "progress", "started_at", "ended_at",
                                 "step", "reason", "asked_by"])
def test_a_job_with_a_member_that_cannot_be_shown_is_refused(key: str) -> None:
    with pytest.raises(MessageFault):
        read_job("job-1", encoded({**JOB, key: {"<b>": 1}}))


@pytest.mark.parametrize("progress", [-1, 101, 1e9])
def test_a_progress_that_is_no_percentage_is_refused(progress: float) -> None:
    with pytest.raises(MessageFault):
        read_job("job-1", encoded({**JOB, "progress": progress}))


def test_an_id_that_is_none_is_refused() -> None:
    with pytest.raises(MessageFault):
        read_job("a b", encoded({**JOB, "id": "a b"}))


def test_a_number_that_is_too_large_is_refused() -> None:
    for read, value in READERS:
        for key in ("time", "since", "ordered_at", "started_at", "exit_status"):
            if key in value:
                with pytest.raises(MessageFault):
                    read(encoded({**value, key: 10 ** 400}))


def test_a_message_that_no_broker_of_ours_lets_through_is_refused() -> None:
    for read, value in READERS:
        with pytest.raises(MessageFault, match="too long"):
            read(encoded({**value, "more": "x" * 65536}))


@given(st.data())
def test_a_member_of_another_type_is_refused_or_harmless(data: st.DataObject) -> None:
    read, value = data.draw(st.sampled_from(READERS))
    key = data.draw(st.sampled_from(sorted(value)))
    other = data.draw(st.one_of(st.none(), st.integers(), st.text(), st.lists(st.integers()),
                                st.dictionaries(st.text(), st.integers()), st.floats()))
    try:
        read(encoded({**value, key: other}))
    except MessageFault:
        pass
