"""The typed events: what the documents of the tool say."""

from __future__ import annotations

from collections.abc import Mapping
from dataclasses import dataclass, field
from typing import Any


class Event:
    """The content of one document."""


@dataclass(frozen=True)
class ErrorDetails:
    """An error of the tool, in the domain "qnrescue", or of a device library."""

    domain: str
    code: int
    description: str = ""
    failure_reason: str = ""

    def __str__(self) -> str:
        return self.failure_reason or self.description or f"{self.domain} error {self.code}"


@dataclass(frozen=True)
class DeviceList(Event):
    """The ECIDs of the restorable devices, ascending."""

    ecids: tuple[str, ...]


@dataclass(frozen=True)
class DeviceInfo(Event):
    """The properties of a device; its numbers are unsigned."""

    ecid: str
    product_id: int  # 16 bits; the others have 32
    board_id: int
    chip_id: int
    product_type: int
    fusing_info: int
    location_id: int
    serial_number: str | None = None
    product_string: str | None = None


@dataclass(frozen=True)
class CommandSuccess(Event):
    """A recovery-mode command was carried out."""


@dataclass(frozen=True)
class RestoreStatus(Event):
    """A report of a restore in progress."""

    status: str
    operation: int
    progress: int  # percent
    operation_name: str | None = None  # absent for operation 0
    error: ErrorDetails | None = None
    details: Mapping[str, Any] = field(default_factory=dict)  # the whole report

    @property
    def step(self) -> str:
        """Returns the name of the step, for people."""
        return self.operation_name or self.status

    @property
    def is_complete(self) -> bool:
        """Returns whether this is the last report of a restore that succeeds."""
        return self.operation == 0 and self.progress == 100

    @property
    def is_failure(self) -> bool:
        """Returns whether this is the last report of a restore that fails."""
        return self.status == "Failed"


@dataclass(frozen=True)
class InternalError(Event):
    """Something went wrong in the tool, or the restore did not complete in time."""

    error: ErrorDetails

    @property
    def is_restore_timeout(self) -> bool:
        """Returns whether the tool stopped waiting for the restore."""
        return self.error.domain == "qnrescue" and self.error.code == 7


@dataclass(frozen=True)
class UnknownDocument(Event):
    """A document of a type that this package does not know, or with an unexpected value."""

    type: str
    value: Any


@dataclass(frozen=True)
class UnreadableDocument(Event):
    """A document that is incomplete or too long, or not a property list with a type."""

    text: bytes
    reason: str
