"""Where the screen gets what it shows, and who carries out what it orders."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Protocol

from qnrescue.screen.board import Board
from qnrescue.steps_file import Step


@dataclass(frozen=True)
class RestoreRequest:
    """What the page orders. `bundle` is a name in the bundle folder of the station, no path."""

    id: str  # of the job
    device: str  # the ECID
    bundle: str
    erase: bool


@dataclass(frozen=True)
class Answer:
    """What a station says to an order."""

    accepted: bool
    reason: str = ""  # why it was refused, for people
    is_known: bool = True  # whether the station has said this


@dataclass(frozen=True)
class Papers:
    """What is kept about a job beside its state."""

    steps: Sequence[Step] = ()
    documents: Sequence[dict[str, Any]] = ()  # the latest: the type and the value of each
    left_out: int = 0  # how many documents come before them
    file: Path | None = None  # with all documents, if it is on this machine
    note: str = ""  # why something is missing, for people


class Source(Protocol):
    """The stations behind the screen."""

    async def run(self, board: Board) -> None:
        """Keeps the board true until it is cancelled."""
        ...

    async def order(self, station: str, request: RestoreRequest, asked_by: str) -> Answer:
        """Orders a restore."""
        ...

    async def cancel(self, station: str, job_id: str, asked_by: str) -> Answer:
        """Orders the end of a job."""
        ...

    async def papers(self, station: str, job_id: str) -> Papers:
        """Returns what is kept about the job."""
        ...
