"""Turns jobs and devices into values for JSON. docs/bench.md describes them."""

from __future__ import annotations

import dataclasses
from datetime import datetime
from typing import Any

from qnrescue.events import DeviceInfo
from qnrescue.jobs import Job
from qnrescue.places import BenchFolder


def job_value(job: Job, folder: BenchFolder) -> dict[str, Any]:
    """Returns the job as the journal has it, with its device and the paths of its files."""
    files = folder.job(job.id)
    return {**job.as_dict(), "device": job.device, "documents": str(files.documents),
            "log": str(files.log), "errors": str(files.errors)}


def device_value(info: DeviceInfo, slot: str) -> dict[str, Any]:
    """Returns the properties of the device and the name of its slot."""
    return {**dataclasses.asdict(info), "slot": slot}


def local_time(seconds: float | None) -> str:
    """Returns the time for people, in their time zone."""
    if seconds is None:
        return ""
    return datetime.fromtimestamp(seconds).strftime("%Y-%m-%d %H:%M:%S")
