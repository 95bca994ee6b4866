"""Drives qnrescue: starts it and yields its documents as typed events, as they arrive.

    tool = Tool(["qnrescue.exe"])
    for ecid in tool.list_devices():
        with tool.restore(ecid, "update.ipsw") as restore:
            for event in restore:
                print(event)
        print(restore.result)

Needs Python 3.9 and nothing else.
"""

from __future__ import annotations

import enum
import plistlib
import queue
import subprocess
import tempfile
import threading
import time
from dataclasses import dataclass, field
from typing import IO, Any, Callable, Dict, Iterator, List, Mapping, Optional, Sequence, Type
from typing import TypeVar, cast

__all__ = [
    "CommandSuccess", "DeviceInfo", "DeviceList", "DocumentSplitter", "ErrorDetails", "Event",
    "InternalError", "Outcome", "Restore", "RestoreResult", "RestoreStatus", "Run", "Silence",
    "Tool", "ToolFailure", "UnknownDocument", "UnreadableDocument", "parse_document",
]

# How often to look whether a run has ended, in seconds.
_POLL_SECONDS = 0.1
# How long to wait for the last output of a process that has ended, in seconds.
_DRAIN_SECONDS = 1.0


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

    ecids: List[str]


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
    serial_number: Optional[str] = None
    product_string: Optional[str] = None


@dataclass(frozen=True)
class CommandSuccess(Event):
    """A recovery-mode command was carried out."""


@dataclass(frozen=True)
class RestoreStatus(Event):
    """A report of a restore in progress."""

    status: str
    operation: int
    progress: int  # percent
    operation_name: Optional[str] = None  # absent for operation 0
    error: Optional[ErrorDetails] = None
    details: Mapping[str, Any] = field(default_factory=dict)  # the whole report

    @property
    def is_complete(self) -> bool:
        """Whether this is the last report of a restore that succeeds."""
        return self.operation == 0 and self.progress == 100

    @property
    def is_failure(self) -> bool:
        """Whether this is the last report of a restore that fails."""
        return self.status == "Failed"


@dataclass(frozen=True)
class InternalError(Event):
    """Something went wrong in the tool, or the restore did not complete in time."""

    error: ErrorDetails

    @property
    def is_restore_timeout(self) -> bool:
        return self.error.domain == "qnrescue" and self.error.code == 7


@dataclass(frozen=True)
class UnknownDocument(Event):
    """A document of a type that this module does not know, or with an unexpected value."""

    type: str
    value: Any


@dataclass(frozen=True)
class UnreadableDocument(Event):
    """A document that is incomplete, or not a property list with a type."""

    text: bytes
    reason: str


class DocumentSplitter:
    """Finds the documents in a stream of bytes that comes in chunks of any size."""

    # Inside a document this is escaped, so it is always the end.
    _END = b"</plist>"

    def __init__(self) -> None:
        self._buffer = bytearray()
        self._searched = 0

    @property
    def pending(self) -> bytes:
        """The beginning of a document that is not complete yet; empty between documents."""
        return bytes(self._buffer.lstrip())

    def feed(self, chunk: bytes) -> List[bytes]:
        """Returns the documents that this chunk completes, without white space around them."""
        self._buffer += chunk
        documents = []
        while True:
            end = self._buffer.find(self._END, self._searched)
            if end < 0:
                break
            end += len(self._END)
            documents.append(bytes(self._buffer[:end].lstrip()))
            del self._buffer[:end]
            self._searched = 0
        self._searched = max(0, len(self._buffer) - len(self._END) + 1)
        return documents


def _error_details(value: Mapping[str, Any]) -> ErrorDetails:
    return ErrorDetails(value.get("Domain", ""), value.get("Code", 0),
                        value.get("Description", ""), value.get("FailureReason", ""))


def _device_info(value: Mapping[str, Any]) -> DeviceInfo:
    # The tool prints the numbers as signed numbers of their width.
    def unsigned(key: str, bits: int = 32) -> int:
        return int(value[key]) & ((1 << bits) - 1)

    return DeviceInfo(
        ecid=value["ECID"],
        product_id=unsigned("ProductID", 16),
        board_id=unsigned("BoardID"),
        chip_id=unsigned("ChipID"),
        product_type=unsigned("ProductType"),
        fusing_info=unsigned("FusingInfo"),
        location_id=unsigned("LocationID"),
        serial_number=value.get("SerialNumber"),
        product_string=value.get("ProductString"),
    )


def _restore_status(value: Mapping[str, Any]) -> RestoreStatus:
    error = value.get("Error")
    return RestoreStatus(
        status=value["Status"],
        operation=int(value["Operation"]),
        progress=int(value["Progress"]),
        operation_name=value.get("QN_OperationName"),
        error=_error_details(error) if isinstance(error, dict) else None,
        details=value,
    )


_EVENTS: Dict[str, Callable[[Any], Event]] = {
    "DeviceList": lambda value: DeviceList(list(value)),
    "DeviceInfo": _device_info,
    "CommandSuccess": lambda value: CommandSuccess(),
    "RestoreStatus": _restore_status,
    "InternalError": lambda value: InternalError(_error_details(value)),
}

# Texts of a device may contain these, but XML does not allow them.
_CONTROL_CHARACTERS = bytes(set(range(32)) - set(b"\t\n\r"))


def parse_document(text: bytes) -> Event:
    """Returns the content of the document. Raises nothing."""
    # A document ends at a NUL in a text, without its closing tag: the next one follows at once.
    document = text[max(0, text.rfind(b"<?xml")):]
    try:
        root = plistlib.loads(document.translate(None, _CONTROL_CHARACTERS), fmt=plistlib.FMT_XML)
        document_type, value = root["Type"], root["Value"]
    except Exception as fault:  # plistlib does not document what it raises
        return UnreadableDocument(text, f"{type(fault).__name__}: {fault}")
    try:
        return _EVENTS[document_type](value)
    except (KeyError, TypeError, ValueError, AttributeError):
        return UnknownDocument(document_type, value)


class ToolFailure(Exception):
    """The tool did not carry out the command; the text says why."""


class Silence(ToolFailure):
    """The tool has reported nothing for too long; it is still running."""


class Run:
    """A process of the tool. Iterating yields its events until it ends, and raises Silence if it
    reports nothing for `silence_timeout` seconds. Leaving the context ends the process."""

    def __init__(self, command: Sequence[str], silence_timeout: Optional[float] = None) -> None:
        """Starts the command. Raises OSError if that fails."""
        self._silence_timeout = silence_timeout
        self._killed = False
        self._queue: queue.Queue[Optional[Event]] = queue.Queue()
        self._errors = tempfile.TemporaryFile()
        try:
            self._process = subprocess.Popen(list(command), bufsize=0, stdin=subprocess.DEVNULL,
                                             stdout=subprocess.PIPE, stderr=self._errors)
        except BaseException:
            self._errors.close()
            raise
        output = cast("IO[bytes]", self._process.stdout)
        threading.Thread(target=self._read, args=(output,), daemon=True).start()

    def __enter__(self) -> Run:
        return self

    def __exit__(self, *_: object) -> None:
        self.kill()
        self._errors.close()

    def __iter__(self) -> Iterator[Event]:
        return self._events()

    def _events(self) -> Iterator[Event]:
        while True:
            event = self._next()
            if event is None:
                self._process.wait()
                return
            yield event

    def _next(self) -> Optional[Event]:
        started = time.monotonic()
        while True:
            ended = self.status is not None
            try:
                return self._queue.get(timeout=_DRAIN_SECONDS if ended else _POLL_SECONDS)
            except queue.Empty:
                # The output does not end while another process holds it open, such as the services
                # that Wine starts along with the tool.
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
    def status(self) -> Optional[int]:
        """The exit status; None while the process runs."""
        return self._process.poll()

    def wait(self, timeout: Optional[float] = None) -> int:
        """Waits for the end of the process and returns its exit status. Raises
        subprocess.TimeoutExpired after `timeout` seconds."""
        return self._process.wait(timeout)

    def kill(self) -> None:
        """Ends the process, unless it has ended by itself. Any thread may call this."""
        self._killed = self._killed or self.status is None
        self._process.kill()
        self._process.wait()

    def error_output(self) -> str:
        """Returns what the tool wrote to standard error. Call this after the tool has ended."""
        self._errors.seek(0)
        return self._errors.read().decode("utf-8", "replace")

    def describe_end(self) -> str:
        """Returns how the process ended, for people: its status and its last line."""
        lines = self.error_output().split("\n")
        last = next((line.strip() for line in reversed(lines) if line.strip()), "")
        return f"ended with status {self.status}" + (f": {last}" if last else "")


class Outcome(enum.Enum):
    """How a restore ended; the value is a word for people."""

    SUCCEEDED = "succeeded"
    FAILED = "failed"
    TIMED_OUT = "timed out"  # the tool stopped waiting
    HUNG = "hung"  # nothing was reported for too long
    STOPPED = "stopped"  # it was killed, or its events were not read to the end


@dataclass(frozen=True)
class RestoreResult:
    outcome: Outcome
    reason: str = ""  # for people; empty if there is nothing to add


class Restore(Run):
    """A run that restores a device. Iterate to the end: then the process has ended, and `result`
    says how. Silence is a result here and raises nothing."""

    result = RestoreResult(Outcome.STOPPED)

    def __enter__(self) -> Restore:
        return self

    def _events(self) -> Iterator[Event]:
        complete = False
        error: Optional[InternalError] = None
        try:
            for event in super()._events():
                if isinstance(event, InternalError):
                    error = event
                elif isinstance(event, RestoreStatus):
                    complete = complete or event.is_complete
                    if event.is_failure:
                        # The tool would now wait until its timeout expires.
                        self._end(Outcome.FAILED, str(event.error or event.status))
                        yield event
                        return
                yield event
        except Silence as silence:
            self._end(Outcome.HUNG, str(silence))
            return
        if error:
            timed_out = error.is_restore_timeout
            self._end(Outcome.TIMED_OUT if timed_out else Outcome.FAILED, str(error.error))
        elif complete and self.status == 0:
            self._end(Outcome.SUCCEEDED)
        elif not self._killed:
            self._end(Outcome.FAILED, self.describe_end())

    def _end(self, outcome: Outcome, reason: str = "") -> None:
        self.kill()
        self.result = RestoreResult(outcome, reason)


_Expected = TypeVar("_Expected", bound=Event)


@dataclass(frozen=True)
class Tool:
    """How to start the tool. Its processes are independent of each other."""

    command: Sequence[str]  # a script has to `exec` the tool, so that the tool can be killed
    detect_timeout: Optional[int] = None  # seconds; None: the tool's default
    silence_timeout: Optional[float] = None  # seconds; None: no limit

    def start(self, *arguments: str) -> Run:
        """Starts a run with any arguments."""
        return Run(self._command(*arguments), self.silence_timeout)

    def list_devices(self) -> List[str]:
        """Returns the ECIDs of the devices that are attached when the detection timeout expires."""
        return self._ask(DeviceList, "--list-devices").ecids

    def device_info(self, ecid: str) -> DeviceInfo:
        """Returns the properties of the device, as soon as it is attached."""
        return self._ask(DeviceInfo, "--device-info", "--ecid", ecid)

    def restore(self, ecid: str, bundle: str, *, erase: bool = False,
                timeout: Optional[int] = None) -> Restore:
        """Starts to restore the device. The tool stops waiting after `timeout` seconds."""
        arguments = ["--restore", bundle, "--ecid", ecid]
        if erase:
            arguments.append("--erase")
        if timeout is not None:
            arguments += ["--restore-timeout", str(timeout)]
        return Restore(self._command(*arguments), self.silence_timeout)

    def _command(self, *arguments: str) -> List[str]:
        detection = [] if self.detect_timeout is None else ["--detect-timeout",
                                                            str(self.detect_timeout)]
        return [*self.command, *arguments, *detection]

    def _ask(self, kind: Type[_Expected], *arguments: str) -> _Expected:
        with self.start(*arguments) as run:
            events = list(run)
            for event in events:
                if isinstance(event, InternalError):
                    raise ToolFailure(str(event.error))
            for event in events:
                if isinstance(event, kind):
                    return event
            raise ToolFailure(run.describe_end())
