"""The contents of the messages that a station sends. The schemas beside this file describe them."""

from __future__ import annotations

import dataclasses
import json
import platform
import time
from collections.abc import Iterable, Mapping, Sequence
from importlib import metadata
from pathlib import Path
from typing import Any

from qnrescue.bench.findings import Finding
from qnrescue.bench.slots import Slots
from qnrescue.fleet.orders import LONGEST_PAYLOAD, is_bundle_name
from qnrescue.fleet.settings import Settings
from qnrescue.jobs import Job

ONLINE, OFFLINE = "online", "offline"
# How often a station publishes again what the broker keeps, in seconds.
REFRESH_SECONDS = 600.0


def encode(value: Mapping[str, Any]) -> str:
    """Returns the value as JSON."""
    return json.dumps(value, allow_nan=False)


def answer_message(order_id: str, reason: str) -> str:
    """Returns the answer to an order: it is accepted if there is no reason to refuse it."""
    return encode({"order": order_id, "answer": "refused" if reason else "accepted",
                   "reason": reason, "time": time.time()})


def job_message(job: Job) -> str:
    """Returns the job as the journal has it."""
    return encode({**job.as_dict(), "device": job.device})


def station_value(settings: Settings, slots: Slots, findings: Sequence[Finding] | None,
                  fault: str) -> dict[str, Any]:
    """Returns what the station is, without the time. Without findings the doctor has not looked
    yet; `fault` says why the devices are not known."""
    return {
        "versions": {"qnrescue": metadata.version("qnrescue"),
                     "python": platform.python_version(), "system": platform.platform()},
        "slots": [{"name": name, "location": location}
                  for location, name in slots.names.items()],
        "limits": {"allow_erase": settings.allow_erase, "longest_order": LONGEST_PAYLOAD,
                   "longest_validity": settings.longest_validity, "job_days": settings.job_days},
        "bundles": sorted(filter(is_bundle_name, _names(settings.bundles))),
        "findings": None if findings is None else [dataclasses.asdict(each) for each in findings],
        "fault": fault}


def _names(folder: Path) -> Iterable[str]:
    try:
        return [path.name for path in folder.iterdir()]
    except OSError:  # the doctor's finding is what counts
        return []
