"""When each step of a restore began: a file in the folder of the job, with a line for each."""

from __future__ import annotations

import contextlib
import json
from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Step:
    """A step of a restore; `start` is in seconds from the start of the tool."""

    name: str
    start: float


class StepsFile:
    """Writes down the steps. A supervisor that takes over a job reads its reports again from the
    first one: the steps that are in the file keep their times."""

    def __init__(self, path: Path) -> None:
        self._path = path
        self._written = len(read_steps(path))
        self._seen = 0
        self._latest = ""

    def note(self, name: str, seconds: float) -> None:
        """Takes over the step that the restore is in after so many seconds. A time line is no
        reason to fail: what cannot be written is left out."""
        if not name or name == self._latest:
            return
        self._latest = name
        self._seen += 1
        if self._seen > self._written:
            with contextlib.suppress(OSError), self._path.open("a", encoding="utf-8") as file:
                file.write(json.dumps([name, round(seconds, 1)]) + "\n")


def read_steps(path: Path) -> list[Step]:
    """Returns the steps of the file; none if it is missing or cannot be read."""
    try:
        lines = path.read_text(encoding="utf-8").splitlines()
    except (OSError, ValueError):
        return []
    steps = []
    for line in lines:
        with contextlib.suppress(ValueError, TypeError):
            name, start = json.loads(line)
            steps.append(Step(str(name), float(start)))
    return steps
