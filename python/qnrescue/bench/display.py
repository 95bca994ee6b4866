"""Turns the rows of a bench into what a terminal shows: a wall that is read from two metres, or
lines of text."""

from __future__ import annotations

import enum
from dataclasses import dataclass
from typing import Sequence

from rich.cells import cell_len
from rich.console import Group, RenderableType
from rich.progress_bar import ProgressBar
from rich.table import Table
from rich.text import Text

from qnrescue.bench import big_letters
from qnrescue.jobs import Job


class Look(enum.Enum):
    """How a state is shown: a word, and a style of rich that never stands alone."""

    EMPTY = ("empty", "#9e9e9e")
    ATTACHED = ("attached", "#000000 on #4dd0e1")
    WAITING = ("waiting", "#000000 on #4dd0e1")
    QUEUED = ("queued", "#000000 on #4dd0e1")
    RUNNING = ("running", "#ffffff on #0b57d0")
    SUCCEEDED = ("succeeded", "#ffffff on #137333")
    FAILED = ("failed", "#ffffff on #b3261e")
    TIMED_OUT = ("timed out", "#ffffff on #b3261e")
    HUNG = ("hung", "#ffffff on #7b1fa2")
    CANCELLED = ("cancelled", "#000000 on #ffca28")
    INTERRUPTED = ("interrupted", "#000000 on #ffca28")
    REFUSED = ("refused", "#000000 on #ffca28")

    @property
    def word(self) -> str:
        return self.value[0]

    @property
    def style(self) -> str:
        return self.value[1]


_LOOKS = {look.word: look for look in Look}


@dataclass(frozen=True)
class Row:
    """What is shown of a slot, or of a device that is in none."""

    slot: str
    look: Look = Look.EMPTY
    device: str = ""
    serial: str = ""
    text: str = ""  # the step, or the reason
    progress: int | None = None  # percent
    seconds: float | None = None  # how long the tool has run

    @property
    def state(self) -> str:
        """The state for the eye: a word, and the progress of what is under way."""
        if self.look is Look.RUNNING and self.progress is not None:
            return f"{self.look.word} {self.progress}%"
        return self.look.word

    @property
    def identity(self) -> str:
        """The device, for people."""
        return f"{self.device}  {self.serial}" if self.serial else self.device


def row_of(job: Job, slot: str = "", serial: str = "") -> Row:
    """Returns the row of a job. Without a slot it is the one that the order names."""
    started = job.started_at is not None
    return Row(slot or job.order.slot, _LOOKS[job.state.value], job.device, serial,
               text=job.reason if job.state.is_end else job.step,
               progress=job.progress if started else None,
               seconds=job.seconds if started else None)


def duration(seconds: float) -> str:
    """Returns the duration as minutes and seconds, and hours if there are any."""
    minutes, rest = divmod(max(0, int(seconds)), 60)
    hours, minutes = divmod(minutes, 60)
    return f"{hours}:{minutes:02}:{rest:02}" if hours else f"{minutes}:{rest:02}"


def clean(text: str) -> str:
    """Returns the text of a device without what would move the cursor."""
    return "".join(each if each.isprintable() else " " for each in text)


# The wall ---------------------------------------------------------------------------------------

_SPACES = (big_letters.HEIGHT + 1, big_letters.HEIGHT, 1)  # lines of a row, the best first
_STATE_WIDTH = 2 + max(big_letters.width("interrupted"), big_letters.width("running 100%"))
_BAR_WIDTH = 30
_LONGEST_BIG_SLOT = 8  # letters
_FRAME_LINES = 3  # the head, the line under it and the message


def wall(rows: Sequence[Row], head: str, message: str, width: int, height: int) -> RenderableType:
    """Returns the screen of a bench: a row for each slot, as high as the terminal allows."""
    slot_width = max([4, *(cell_len(line) for row in rows for line in _slot_lines(row))])
    big_enough = slot_width + _STATE_WIDTH + 30 <= width
    lines = next((each for each in _SPACES if each * len(rows) <= height - _FRAME_LINES
                  and (big_enough or each == 1)), 1)
    shown = rows[: max(1, (height - _FRAME_LINES) // lines)]
    more = f"… and {len(rows) - len(shown)} more" if len(shown) < len(rows) else ""
    body = _small(shown) if lines == 1 else _big(shown, slot_width, lines)
    return Group(Text(clean(head), "bold", no_wrap=True, overflow="ellipsis"), Text(), body,
                 Text(clean(" ".join(filter(None, [more, message]))), no_wrap=True,
                      overflow="ellipsis"))


def best_height(rows: int) -> int:
    """Returns how many lines a wall of so many rows needs at its largest."""
    return _FRAME_LINES + max(_SPACES) * rows


def compact(rows: Sequence[Row], height: int) -> RenderableType:
    """Returns the rows, each on a line, no more of them than there is height for."""
    shown = rows if len(rows) <= height else rows[: max(0, height - 1)]
    more = f"… and {len(rows) - len(shown)} more"
    return _small(shown) if shown is rows else Group(_small(shown), Text(more))


def _slot_lines(row: Row) -> list[str]:
    if big_letters.can_draw(row.slot) and len(row.slot) <= _LONGEST_BIG_SLOT:
        return big_letters.draw(row.slot)
    return ["", clean(row.slot), ""]


def _big(rows: Sequence[Row], slot_width: int, lines: int) -> Table:
    table = Table.grid(padding=(0, 2, 0, 0), expand=True)
    table.add_column(width=slot_width, no_wrap=True)
    table.add_column(width=_STATE_WIDTH, no_wrap=True)
    table.add_column(ratio=1, no_wrap=True, overflow="ellipsis")
    for row in rows:
        table.add_row(Text("\n".join(_slot_lines(row)), "bold"), _big_state(row), _details(row))
        if lines > big_letters.HEIGHT:
            table.add_row()
    return table


def _big_state(row: Row) -> Text:
    drawing = (f" {line}".ljust(_STATE_WIDTH) for line in big_letters.draw(row.state))
    return Text("\n".join(drawing), f"bold {row.look.style}")


def _details(row: Row) -> Table:
    table = Table.grid(expand=True)
    table.add_column(no_wrap=True, overflow="ellipsis")
    table.add_row(Text(clean(row.identity), "bold"))
    table.add_row(Text(clean(row.text)))
    table.add_row(_bar(row))
    return table


def _bar(row: Row) -> RenderableType:
    if row.seconds is None:
        return Text()
    bar = Table.grid(padding=(0, 1, 0, 0))
    bar.add_row(_progress_bar(row, _BAR_WIDTH), Text(f"{row.progress or 0:3} %"),
                Text(duration(row.seconds)))
    return bar


def _progress_bar(row: Row, width: int) -> ProgressBar:
    return ProgressBar(100, row.progress or 0, width, complete_style="bright_white",
                       finished_style="bright_white")


def _small(rows: Sequence[Row]) -> Table:
    table = Table.grid(padding=(0, 1, 0, 0), expand=True)
    table.add_column(no_wrap=True)
    table.add_column(width=len("interrupted") + 2, no_wrap=True)
    table.add_column(no_wrap=True)
    table.add_column(width=_BAR_WIDTH // 2)
    table.add_column(justify="right", no_wrap=True)
    table.add_column(ratio=1, no_wrap=True, overflow="ellipsis")
    for row in rows:
        timed = row.seconds is not None
        table.add_row(Text(clean(row.slot), "bold"),
                      Text(f" {row.look.word.upper()} ", f"bold {row.look.style}"),
                      Text(clean(row.identity)),
                      _progress_bar(row, _BAR_WIDTH // 2) if timed else Text(),
                      Text(f"{row.progress or 0} %  {duration(row.seconds or 0)}" if timed else ""),
                      Text(clean(row.text)))
    return table


# Lines ------------------------------------------------------------------------------------------

def line_of(row: Row) -> str:
    """Returns the row as a line for a file or a pipe; the same line means that nothing has changed
    that is worth another one."""
    place = f"{row.slot}: " if row.slot else ""
    if row.look is Look.RUNNING and row.text:
        return f"{place}{row.device} {row.progress or 0:3} % {clean(row.text)}".rstrip()
    reason = f": {clean(row.text)}" if row.text and row.look is not Look.SUCCEEDED else ""
    return f"{place}{row.device}       {row.look.word}{reason}"


def table_lines(headings: Sequence[str], rows: Sequence[Sequence[str]]) -> list[str]:
    """Returns the lines of a table without frames."""
    lines = [[clean(cell) for cell in line] for line in (headings, *rows)]
    widths = [max(len(line[column]) for line in lines) for column in range(len(headings))]
    return ["  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
            for line in lines]


def framed_table(headings: Sequence[str], rows: Sequence[Sequence[str]]) -> Table:
    """Returns the table for a terminal. The states among the cells have their colours."""
    table = Table(*headings)
    for row in rows:
        table.add_row(*(Text(clean(cell), _LOOKS[cell].style if cell in _LOOKS else "")
                        for cell in row))
    return table
