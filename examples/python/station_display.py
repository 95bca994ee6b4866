"""Shows the progress of a restore station: bars on a terminal if rich is installed, else lines."""

from __future__ import annotations

import sys
import threading
from contextlib import contextmanager
from typing import Dict, Iterator, Sequence

from qnrescue_client import RestoreResult

try:
    from rich.console import Console
    from rich.progress import BarColumn, Progress, TaskID, TaskProgressColumn
    from rich.progress import TextColumn, TimeElapsedColumn
    from rich.table import Table
    from rich.text import Text
except ImportError:
    HAS_RICH = False
else:
    HAS_RICH = True


def describe(result: RestoreResult) -> str:
    return f"{result.outcome.value}: {result.reason}" if result.reason else result.outcome.value


class Display:
    """Prints plain lines, one for each new step of a device. Any thread may call this."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._steps: Dict[str, str] = {}

    @contextmanager
    def bars(self, ecids: Sequence[str]) -> Iterator[None]:
        """Shows the progress of these devices within the context."""
        yield

    def report(self, ecid: str, step: str, progress: int) -> None:
        with self._lock:
            if self._steps.get(ecid) != step:
                self._steps[ecid] = step
                print(f"{ecid} {progress:3} % {step}", flush=True)

    def end(self, ecid: str, result: RestoreResult) -> None:
        with self._lock:
            print(f"{ecid}       {describe(result)}", flush=True)

    def show_table(self, headings: Sequence[str], rows: Sequence[Sequence[str]]) -> None:
        lines = [headings, *rows]
        widths = [max(len(line[column]) for line in lines if column < len(line))
                  for column in range(len(headings))]
        for line in lines:
            print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())


class Bars(Display):
    """Shows a bar for each device, and tables with frames."""

    def __init__(self) -> None:
        super().__init__()
        self._console = Console()
        # Texts of devices must not be read as markup.
        self._progress = Progress(
            TextColumn("{task.fields[ecid]}", markup=False), BarColumn(), TaskProgressColumn(),
            TimeElapsedColumn(), TextColumn("{task.description}", markup=False),
            console=self._console)
        self._tasks: Dict[str, TaskID] = {}

    @contextmanager
    def bars(self, ecids: Sequence[str]) -> Iterator[None]:
        self._tasks = {ecid: self._progress.add_task("", total=100, ecid=ecid) for ecid in ecids}
        with self._progress:
            yield

    def report(self, ecid: str, step: str, progress: int) -> None:
        self._progress.update(self._tasks[ecid], completed=min(max(progress, 0), 100),
                              description=step)

    def end(self, ecid: str, result: RestoreResult) -> None:
        self._progress.update(self._tasks[ecid], description=describe(result))
        self._progress.stop_task(self._tasks[ecid])

    def show_table(self, headings: Sequence[str], rows: Sequence[Sequence[str]]) -> None:
        table = Table(*headings)
        for row in rows:
            table.add_row(*(Text(cell) for cell in row))
        self._console.print(table)


def make_display(plain: bool) -> Display:
    return Bars() if HAS_RICH and sys.stdout.isatty() and not plain else Display()
