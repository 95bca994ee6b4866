"""Writes what a command has to show: on a terminal, as plain lines, or as JSON Lines.

Nothing else writes to standard output, so that a broken output is noticed in one place."""

from __future__ import annotations

import contextlib
import io
import json
import os
import sys
from collections.abc import Iterator, Mapping, Sequence
from typing import Any, TextIO

from rich.console import Console, RenderableType
from rich.live import Live

from qnrescue.bench.display import framed_table, table_lines


class OutputBroken(Exception):
    """The output cannot be written; the text says why."""


class Screen:
    """A part of the terminal that is drawn anew at each update."""

    def __init__(self, live: Live | None) -> None:
        self._live = live

    def show(self, content: RenderableType) -> None:
        """Draws the content. Raises OutputBroken."""
        if self._live is not None:
            with _noticed():
                self._live.update(content, refresh=True)


class Output:
    """Where a command shows something."""

    def __init__(self, *, as_json: bool = False, plain: bool = False,
                 stream: TextIO | None = None) -> None:
        self.as_json = as_json
        self._stream = stream or sys.stdout or _closed_stream()
        # A terminal that has closed is no terminal any more: rich would then write nothing.
        self._console = Console(file=self._stream, highlight=False, markup=False, emoji=False,
                                force_terminal=Console(file=self._stream).is_terminal)
        self.on_terminal = self._console.is_terminal and not (as_json or plain)

    @property
    def size(self) -> tuple[int, int]:
        """Returns the columns and lines of the terminal."""
        return self._console.width, self._console.height

    def line(self, text: str) -> None:
        """Writes a line. Raises OutputBroken."""
        with _noticed():
            self._stream.write(text + "\n")
            self._stream.flush()

    def value(self, value: Mapping[str, Any]) -> None:
        """Writes a value as a line of JSON. Raises OutputBroken."""
        self.line(json.dumps(value, ensure_ascii=False))

    def table(self, headings: Sequence[str], rows: Sequence[Sequence[str]],
              values: Sequence[Mapping[str, Any]]) -> None:
        """Writes a table: the rows for people, or the values as JSON. Raises OutputBroken."""
        if self.as_json:
            for value in values:
                self.value(value)
        elif self.on_terminal:
            with _noticed():
                self._console.print(framed_table(headings, rows))
        else:
            for line in table_lines(headings, rows):
                self.line(line)

    def bell(self) -> None:
        """Rings the bell of the terminal, if there is one. Raises OutputBroken."""
        if self._console.is_terminal:
            with _noticed():
                self._stream.write("\a")
                self._stream.flush()

    def give_up(self) -> None:
        """Drops what could not be written: at its end the interpreter would try that again, and
        end with a status of its own."""
        with contextlib.suppress(OSError, ValueError):
            nowhere = os.open(os.devnull, os.O_WRONLY)
            os.dup2(nowhere, self._stream.fileno())
            os.close(nowhere)

    @contextlib.contextmanager
    def screen(self, *, full: bool) -> Iterator[Screen]:
        """Gives a part of the terminal, or all of it; what is shown elsewhere than on a terminal
        goes nowhere. Raises OutputBroken."""
        if not self.on_terminal:
            yield Screen(None)
            return
        live = Live(console=self._console, screen=full, auto_refresh=False,
                    redirect_stdout=False, redirect_stderr=False, vertical_overflow="crop")
        with _noticed():
            live.start()
        try:
            yield Screen(live)
        finally:
            with _noticed():
                live.stop()


def _closed_stream() -> TextIO:
    """Returns a stream in place of a standard output that was closed before the start."""
    stream = io.StringIO()
    stream.close()
    return stream


@contextlib.contextmanager
def _noticed() -> Iterator[None]:
    try:
        yield
    except (OSError, ValueError) as fault:  # ValueError: the stream is closed
        raise OutputBroken(getattr(fault, "strerror", None) or str(fault)) from fault


def show_all_letters(*streams: TextIO) -> None:
    """Lets the streams replace the letters that the console cannot show."""
    for stream in streams:
        reconfigure = getattr(stream, "reconfigure", None)
        if reconfigure is not None:
            reconfigure(errors="replace")
