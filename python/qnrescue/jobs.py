"""What a job is: the order, and what has become of it."""

from __future__ import annotations

import dataclasses
import re
import uuid
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any

from qnrescue import commands
from qnrescue.outcome import JobState

__all__ = ["Job", "JobOrder", "JobState", "check_job_id", "new_job_id"]

# How long a device may report nothing before it counts as hung, in seconds.
SILENCE_TIMEOUT = 600.0

_JOB_ID = re.compile(r"[A-Za-z0-9][A-Za-z0-9._-]{0,63}")
# Windows reserves these as names of files, with any extension.
_RESERVED = re.compile(r"(CON|PRN|AUX|NUL|COM\d|LPT\d)(\..*)?", re.IGNORECASE)


def new_job_id() -> str:
    """Returns an id that no other job has."""
    return str(uuid.uuid4())


def check_job_id(text: str) -> str:
    """Returns the id. Raises ValueError if it cannot be one: it has to be the name of a folder on
    any system."""
    if not _JOB_ID.fullmatch(text) or _RESERVED.fullmatch(text) or text.endswith("."):
        raise ValueError(f"not an id of a job: {text!r}")
    return text


@dataclass(frozen=True)
class JobOrder:
    """What to restore, and how. Exactly one of `bundle` and `plist` is given; both are paths, and
    absolute ones, since the supervisor works in another folder."""

    device: str  # the ECID
    bundle: str = ""
    plist: str = ""  # a file with options of a restore
    erase: bool = False
    enter_restore_mode: bool = False
    restore_timeout: int | None = None  # seconds; None: the tool's default
    detect_timeout: int | None = None  # seconds; None: the tool's default
    silence_timeout: float | None = SILENCE_TIMEOUT  # seconds; None: no limit
    tool: tuple[str, ...] = ("qnrescue",)  # the words that start the tool
    slot: str = ""  # where the device is plugged in, for people
    repeats: str = ""  # the id of the job that this one repeats
    not_after: float | None = None  # when it is too late to start, in seconds since 1970-01-01, UTC

    def __post_init__(self) -> None:
        object.__setattr__(self, "device", commands.clean_ecid(self.device))
        object.__setattr__(self, "tool", tuple(self.tool))
        if bool(self.bundle) == bool(self.plist):
            raise ValueError("a restore needs either a bundle or a file of options")
        if self.plist and (self.erase or self.restore_timeout is not None):
            raise ValueError("erase and restore_timeout need a bundle")
        if not self.tool:
            raise ValueError("no command that starts the tool")

    def arguments(self, log_file: str) -> list[str]:
        """Returns the arguments of the tool."""
        if self.plist:
            return commands.restore_plist(
                self.device, self.plist, enter_restore_mode=self.enter_restore_mode,
                detect_timeout=self.detect_timeout, log_file=log_file)
        return commands.restore(
            self.device, self.bundle, erase=self.erase,
            enter_restore_mode=self.enter_restore_mode, restore_timeout=self.restore_timeout,
            detect_timeout=self.detect_timeout, log_file=log_file)


@dataclass(frozen=True)
class Job:
    """A restore, as the journal has it. Times are seconds since 1970-01-01, UTC, for display only;
    `seconds` is how long the tool has run, whatever the clock was set to."""

    id: str
    order: JobOrder
    state: JobState
    asked_by: str
    revision: int  # of the journal, at the latest change of the job
    ordered_at: float
    started_at: float | None = None
    ended_at: float | None = None
    seconds: float = 0.0
    operation: int | None = None
    step: str = ""
    progress: int = 0  # percent
    reason: str = ""  # for people; empty if there is nothing to add
    exit_status: int | None = None  # None: not known
    cancel_asked_by: str = ""  # who has ordered the end

    @property
    def device(self) -> str:
        """Returns the ECID of the device."""
        return self.order.device

    def as_dict(self) -> dict[str, Any]:
        """Returns the job as JSON has it."""
        return dataclasses.asdict(self)

    @classmethod
    def from_dict(cls, values: Mapping[str, Any]) -> Job:
        """Returns the job. Raises TypeError, KeyError or ValueError if the values are not one."""
        parts: dict[str, Any] = {**values, "order": JobOrder(**values["order"]),
                                 "state": JobState(values["state"])}
        return cls(**parts)
