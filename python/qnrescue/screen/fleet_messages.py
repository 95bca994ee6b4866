"""Reads what the stations of a fleet say. Nothing is shown that is not checked here."""

from __future__ import annotations

import json
import math
from typing import Any

from qnrescue.commands import clean_ecid
from qnrescue.jobs import Job, check_job_id
from qnrescue.screen.board import Device, Station
from qnrescue.screen.source import Answer

# The most that a message has, in bytes: as much as the broker of docs/fleet.md lets through.
_LONGEST = 1 << 16
# What is wrong with a message.
_FAULTS = (AttributeError, KeyError, OverflowError, TypeError, ValueError)


class MessageFault(Exception):
    """A message is not what its topic says; the text says why."""


def read_station(name: str, payload: bytes) -> tuple[Station, float]:
    """Returns the station and when it said this. Raises MessageFault."""
    try:
        root = _root(payload)
        problems = [_text(each, "text") for each in root["findings"] or ()
                    if each["word"] == "problem"]
        station = Station(name, slots=tuple(_text(each, "name") for each in root["slots"]),
                          bundles=tuple(_texts(root["bundles"])),
                          may_erase=root["limits"]["allow_erase"] is True,
                          note="; ".join(filter(None, [_text(root, "fault"), *problems])))
        return station, _number(root, "time")
    except _FAULTS as fault:
        raise MessageFault(f"not a station: {fault!r}") from fault


def read_device(ecid: str, payload: bytes) -> Device:
    """Returns the device. Raises MessageFault."""
    try:
        root = _root(payload)
        return Device(clean_ecid(ecid), _text(root, "slot"), _text(root, "serial_number"),
                      _text(root, "product"), _number(root, "since"))
    except _FAULTS as fault:
        raise MessageFault(f"not a device: {fault!r}") from fault


def read_job(job_id: str, payload: bytes) -> Job:
    """Returns the job. Raises MessageFault."""
    try:
        root = _root(payload)
        root.pop("device")
        check_job_id(job_id)
        for key in ("asked_by", "step", "reason", "cancel_asked_by"):
            _text(root, key)
        for key in ("ordered_at", "seconds", "progress"):
            _number(root, key)
        if not 0 <= root["progress"] <= 100:
            raise ValueError("not percent")
        for key in ("started_at", "ended_at", "exit_status"):
            if root[key] is not None:
                _number(root, key)
        for key in ("device", "bundle", "plist", "slot"):
            _text(root["order"], key)
        job = Job.from_dict(root)
        if job.id != job_id:
            raise ValueError("another id")
        return job
    except _FAULTS as fault:
        raise MessageFault(f"not a job: {fault!r}") from fault


def read_answer(payload: bytes) -> Answer:
    """Returns the answer. Raises MessageFault."""
    try:
        root = _root(payload)
        return Answer(_text(root, "answer") == "accepted", _text(root, "reason"))
    except _FAULTS as fault:
        raise MessageFault(f"not an answer: {fault!r}") from fault


def _root(payload: bytes) -> dict[str, Any]:
    if len(payload) > _LONGEST:
        raise ValueError("too long")
    try:
        root = json.loads(payload)
    except RecursionError as fault:
        raise ValueError("too deep") from fault
    if not isinstance(root, dict):
        raise TypeError("not an object")
    return root


def _text(root: dict[str, Any], key: str) -> str:
    if not isinstance(root[key], str):
        raise TypeError(f"{key} is not a text")
    return str(root[key])


def _texts(values: list[Any]) -> list[str]:
    if not isinstance(values, list) or not all(isinstance(each, str) for each in values):
        raise TypeError("not texts")
    return values


def _number(root: dict[str, Any], key: str) -> float:
    value = root[key]
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not math.isfinite(value):
        raise TypeError(f"{key} is not a number")
    return float(value)
