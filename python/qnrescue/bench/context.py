"""What the commands of qnrescue-bench share: their options, the tool and the desk."""

from __future__ import annotations

import argparse
import contextlib
import functools
import os
import shutil
import sys
from collections.abc import Iterator

from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.output import Output
from qnrescue.bench.slots import FILE_NAME, Slots, read_slots
from qnrescue.database import JournalBroken, JournalError
from qnrescue.desk import Desk
from qnrescue.places import BenchFolder, bench_folder
from qnrescue.supervisor import SupervisorFailure
from qnrescue.tool import Tool

# Has the words that start the tool, one a line.
TOOL_VARIABLE = "QNRESCUE_TOOL"


class CommandFailure(Exception):
    """A command cannot be carried out; the text says why, for people."""

    def __init__(self, status: ExitStatus, text: str) -> None:
        super().__init__(text)
        self.status = status


class Context:
    """The surroundings of a command."""

    def __init__(self, options: argparse.Namespace, output: Output) -> None:
        self.options = options
        self.output = output

    @functools.cached_property
    def folder(self) -> BenchFolder:
        """The folder of the bench. Raises CommandFailure."""
        try:
            return bench_folder(self.options.folder)
        except OSError as fault:
            raise CommandFailure(ExitStatus.BENCH, f"the folder of the bench cannot be used:"
                                                   f" {fault}") from fault

    @functools.cached_property
    def slots(self) -> Slots:
        """The slots as they are named. Raises SlotsFault."""
        return read_slots(self.folder.path / FILE_NAME)

    @functools.cached_property
    def tool_words(self) -> tuple[str, ...]:
        """The words that start the tool. Names of files are absolute: the supervisor works in
        another folder."""
        named = self.options.tool or os.environ.get(TOOL_VARIABLE, "qnrescue").split("\n")
        program = shutil.which(named[0]) or named[0]
        return tuple(os.path.abspath(word) if os.path.isfile(word) else word
                     for word in (program, *named[1:]))

    def tool(self, detect_timeout: int | None = None) -> Tool:
        """Returns the tool."""
        return Tool(self.tool_words, detect_timeout)

    @contextlib.contextmanager
    def desk(self) -> Iterator[Desk]:
        """Gives the desk. What goes wrong with the journal or the supervisor raises
        CommandFailure."""
        try:
            with Desk(self.folder) as desk:
                yield desk
        except JournalBroken as fault:
            raise CommandFailure(ExitStatus.BENCH, f"the journal is damaged: {fault}; it is kept,"
                                                   " and the next command has a new one") from fault
        except JournalError as fault:
            raise CommandFailure(ExitStatus.BENCH,
                                 f"the journal cannot be used: {fault}") from fault
        except SupervisorFailure as fault:
            raise CommandFailure(ExitStatus.BENCH, str(fault)) from fault

    @contextlib.contextmanager
    def starting(self) -> Iterator[None]:
        """Turns what happens when the tool cannot be started into CommandFailure."""
        try:
            yield
        except OSError as fault:
            raise CommandFailure(
                ExitStatus.BENCH, f"cannot start {self.tool_words[0]!r}: {fault.strerror or fault};"
                                  f" name the program with --tool or {TOOL_VARIABLE}") from fault

    def note(self, text: str) -> None:
        """Writes a line for people to standard error, if that is possible."""
        with contextlib.suppress(OSError, ValueError, AttributeError):  # closed before the start
            sys.stderr.write(f"qnrescue-bench: {text}\n")
            sys.stderr.flush()
