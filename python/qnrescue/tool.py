"""Runs the tool and waits for what it reports.

    tool = Tool("qnrescue.exe")
    for ecid in tool.list_devices():
        print(tool.device_info(ecid))
        with tool.restore(ecid, "update.ipsw") as restore:
            for event in restore:
                print(event)
        print(restore.state, restore.reason)

A restore that is run like this ends with this process. `desk.Desk` orders one that does not."""

from __future__ import annotations

import os
import queue
import subprocess
import tempfile
import threading
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from types import TracebackType
from typing import IO, TypeVar, cast

from qnrescue import commands
from qnrescue.documents import DocumentSplitter, parse_document
from qnrescue.events import (CommandSuccess, DeviceInfo, DeviceList, Event, InternalError,
                             UnreadableDocument)
from qnrescue.outcome import JobState, RestoreProgress

# What starts the tool: a program, or a program and its first arguments.
Command = str | os.PathLike[str] | Sequence[str | os.PathLike[str]]

# How often to look whether a run has ended, in seconds.
_POLL_SECONDS = 0.1
# How long to wait for the last output of a process that has ended, in seconds: another process may
# hold it open, such as the services that Wine starts along with the tool.
DRAIN_SECONDS = 1.0

_Expected = TypeVar("_Expected", bound=Event)


class ToolFailure(Exception):
    """The tool did not carry out the command; the text says why."""


class Silence(ToolFailure):
    """The tool has reported nothing for too long; it is still running."""


def command_words(command: Command) -> tuple[str, ...]:
    """Returns the words of the command. Raises ValueError if there are none."""
    if isinstance(command, (str, os.PathLike)):
        return (os.fspath(command),)
    words = tuple(os.fspath(word) for word in command)
    if not words:
        raise ValueError("no command that starts the tool")
    return words


def last_line(text: bytes) -> str:
    """Returns the last line that is not empty, for people."""
    lines = text.decode("utf-8", "replace").split("\n")
    return next((line.strip() for line in reversed(lines) if line.strip()), "")


def describe_end(status: int | None, errors: bytes) -> str:
    """Returns how the tool ended, for people: its status and its last line."""
    last = last_line(errors)
    return f"ended with status {status}" + (f": {last}" if last else "")


def pick(kind: type[_Expected], events: Sequence[Event], end: str) -> _Expected:
    """Returns the first event of this kind. Raises ToolFailure if there is none, with the tool's
    error, or with `end`, which says how the tool ended."""
    for event in events:
        if isinstance(event, InternalError):
            raise ToolFailure(str(event.error))
    for event in events:
        if isinstance(event, kind):
            return event
    raise ToolFailure(end)


class Run:
    """A process of the tool. Iterating yields its events until it ends, and raises Silence if it
    reports nothing for `silence_timeout` seconds. Leaving the context ends the process."""

    def __init__(self, words: Sequence[str], silence_timeout: float | None = None) -> None:
        """Starts the command. Raises OSError if that fails."""
        self._silence_timeout = silence_timeout
        self._queue: queue.Queue[Event | None] = queue.Queue()
        self._errors = tempfile.TemporaryFile()
        try:
            self._process = subprocess.Popen(list(words), bufsize=0, stdin=subprocess.DEVNULL,
                                             stdout=subprocess.PIPE, stderr=self._errors)
        except BaseException:
            self._errors.close()
            raise
        output = cast(IO[bytes], self._process.stdout)
        threading.Thread(target=self._read, args=(output,), daemon=True).start()

    def __enter__(self) -> Run:
        return self

    def __exit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.kill()
        self._errors.close()

    def __iter__(self) -> Iterator[Event]:
        while (event := self._next()) is not None:
            yield event
        self._process.wait()

    def _next(self) -> Event | None:
        started = time.monotonic()
        while True:
            ended = self.status is not None
            try:
                return self._queue.get(timeout=DRAIN_SECONDS if ended else _POLL_SECONDS)
            except queue.Empty:
                if ended:
                    return None
            limit = self._silence_timeout
            if limit is not None and time.monotonic() - started >= limit:
                raise Silence(f"no report for {limit:g} s")

    def _read(self, output: IO[bytes]) -> None:
        splitter = DocumentSplitter()
        with output:
            for chunk in iter(lambda: output.read(65536), b""):
                for document in splitter.feed(chunk):
                    self._queue.put(parse_document(document))
        if splitter.pending:
            self._queue.put(UnreadableDocument(splitter.pending,
                                               "the output ends within a document"))
        self._queue.put(None)

    @property
    def status(self) -> int | None:
        """Returns the exit status; None while the process runs."""
        return self._process.poll()

    def kill(self) -> None:
        """Ends the process, unless it has ended by itself. Any thread may call this."""
        self._process.kill()
        self._process.wait()

    def error_output(self) -> bytes:
        """Returns what the tool wrote to standard error. Call this after the tool has ended, and
        before leaving the context."""
        self._errors.seek(0)
        return self._errors.read()

    def describe_end(self) -> str:
        """Returns how the process ended, for people."""
        return describe_end(self.status, self.error_output())


class Restore(Run):
    """A run that restores a device. Iterate to the end: then the process has ended, `state` is how,
    and `reason` why, for people. Silence is an end here and raises nothing."""

    def __init__(self, words: Sequence[str], silence_timeout: float | None = None, *,
                 enter_restore_mode: bool = False) -> None:
        """Starts the command. Raises OSError if that fails."""
        self.progress = RestoreProgress(enter_restore_mode=enter_restore_mode)
        self.state = JobState.RUNNING
        self.reason = ""
        super().__init__(words, silence_timeout)

    def __enter__(self) -> Restore:
        return self

    def __iter__(self) -> Iterator[Event]:
        try:
            for event in super().__iter__():
                self.progress.feed(event)
                if self.progress.has_failed:
                    self._end(*self.progress.ended(None))  # the tool would only wait now
                    yield event
                    return
                yield event
        except Silence as silence:
            self._end(JobState.HUNG, str(silence))
            return
        self._end(*self.progress.ended(self.status, last_line(self.error_output())))

    def kill(self) -> None:
        """Ends the process. If it was running, the restore is cancelled."""
        if self.status is None:
            self._end(JobState.CANCELLED, "")
        super().kill()

    def _end(self, state: JobState, reason: str) -> None:
        if self.state is JobState.RUNNING:
            self.state, self.reason = state, reason
            super().kill()


@dataclass(frozen=True)
class Tool:
    """How to start the tool. Its processes are independent of each other."""

    command: Command = "qnrescue"  # a script has to `exec` the tool, so that the tool can be ended
    detect_timeout: int | None = None  # seconds; None: the tool's default
    silence_timeout: float | None = None  # seconds; None: no limit

    def start(self, *arguments: str) -> Run:
        """Starts a run with any arguments. Raises OSError if that fails."""
        return Run([*command_words(self.command), *arguments], self.silence_timeout)

    def list_devices(self) -> list[str]:
        """Returns the ECIDs of the devices that are attached when the detection timeout expires.
        Raises ToolFailure or OSError, as all commands do."""
        arguments = commands.list_devices(detect_timeout=self.detect_timeout)
        return list(self._ask(DeviceList, arguments).ecids)

    def device_info(self, ecid: str) -> DeviceInfo:
        """Returns the properties of the device, as soon as it is attached."""
        return self._ask(DeviceInfo, commands.device_info(ecid, detect_timeout=self.detect_timeout))

    def exit_recovery(self, ecid: str) -> None:
        """Boots the device out of recovery mode."""
        self._ask(CommandSuccess,
                  commands.exit_recovery(ecid, detect_timeout=self.detect_timeout))

    def no_exit_recovery(self, ecid: str) -> None:
        """Keeps the device in recovery mode when it reboots."""
        self._ask(CommandSuccess,
                  commands.no_exit_recovery(ecid, detect_timeout=self.detect_timeout))

    def restore(self, ecid: str, bundle: str | os.PathLike[str], *, erase: bool = False,
                enter_restore_mode: bool = False, timeout: int | None = None,
                log_file: str | os.PathLike[str] | None = None) -> Restore:
        """Starts to restore the device. The tool stops waiting after `timeout` seconds."""
        return self._restore(
            commands.restore(ecid, os.fspath(bundle), erase=erase, restore_timeout=timeout,
                             enter_restore_mode=enter_restore_mode, log_file=_path(log_file),
                             detect_timeout=self.detect_timeout), enter_restore_mode)

    def restore_plist(self, ecid: str, plist: str | os.PathLike[str], *,
                      enter_restore_mode: bool = False,
                      log_file: str | os.PathLike[str] | None = None) -> Restore:
        """Starts to restore the device with the options in a property-list file."""
        return self._restore(
            commands.restore_plist(ecid, os.fspath(plist), enter_restore_mode=enter_restore_mode,
                                   log_file=_path(log_file), detect_timeout=self.detect_timeout),
            enter_restore_mode)

    def _restore(self, arguments: list[str], enter_restore_mode: bool) -> Restore:
        return Restore([*command_words(self.command), *arguments], self.silence_timeout,
                       enter_restore_mode=enter_restore_mode)

    def _ask(self, kind: type[_Expected], arguments: list[str]) -> _Expected:
        with self.start(*arguments) as run:
            events = list(run)
            return pick(kind, events, run.describe_end())


def _path(path: str | os.PathLike[str] | None) -> str | None:
    return None if path is None else os.fspath(path)
