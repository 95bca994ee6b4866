"""From the bytes that the tool writes to documents, and from documents to events."""

from __future__ import annotations

import datetime
import plistlib
import re
from collections.abc import Callable
from typing import Any

from qnrescue.events import (CommandSuccess, DeviceInfo, DeviceList, ErrorDetails, Event,
                             InternalError, RestoreStatus, UnknownDocument, UnreadableDocument)

# The longest document that is read, in bytes. Those of the tool have about one thousand.
LIMIT = 1 << 20
# How deep the values in a document may be nested.
DEPTH_LIMIT = 64

# Inside a document "<" is escaped, so these are always the start and the end of one.
_START = b"<?xml"
_END = b"</plist>"


class DocumentSplitter:
    """Finds the documents in a stream of bytes that comes in chunks of any size.

    Each document ends with its closing tag, or where the next one starts: the tool leaves out the
    rest of a document after a NUL. A document longer than `limit` bytes is cut to that length, and
    what follows it is dropped up to the next start. So no more than a document is ever held."""

    def __init__(self, limit: int = LIMIT) -> None:
        self._limit = limit
        self._buffer = bytearray()
        self._searched = 0
        self._skipping = False

    @property
    def pending(self) -> bytes:
        """Returns the beginning of a document that is not complete yet; empty between documents."""
        return b"" if self._skipping else bytes(self._buffer)

    def feed(self, chunk: bytes) -> list[bytes]:
        """Returns the documents that this chunk completes, without white space before them."""
        documents: list[bytes] = []
        # Large chunks are taken piece by piece, so that the buffer stays bounded.
        for start in range(0, len(chunk), self._limit):
            self._buffer += chunk[start:start + self._limit]
            while self._advance(documents):
                pass
        return documents

    def _advance(self, documents: list[bytes]) -> bool:
        if self._skipping:
            return self._skip()
        if not self._searched:
            del self._buffer[:len(self._buffer) - len(self._buffer.lstrip())]
        end = self._find_end()
        if end is None:
            certain = len(self._buffer) - _overlap(self._buffer)
            if certain <= self._limit:
                self._searched = max(0, len(self._buffer) - len(_END) + 1)
                return False
            end = certain
        documents.append(bytes(self._buffer[:min(end, self._limit)]))
        self._skipping = end > self._limit
        del self._buffer[:end]
        self._searched = 0
        return True

    def _find_end(self) -> int | None:
        """Returns where the document in the buffer ends; None if it is not complete."""
        closed = self._buffer.find(_END, self._searched)
        ends = [closed + len(_END)] if closed >= 0 else []
        follower = self._buffer.find(_START, max(1, self._searched))
        ends += [follower] if follower >= 0 else []
        return min(ends, default=None)

    def _skip(self) -> bool:
        start = self._buffer.find(_START)
        self._skipping = start < 0
        del self._buffer[:len(self._buffer) - _overlap(self._buffer) if start < 0 else start]
        return not self._skipping


def _overlap(text: bytearray) -> int:
    """Returns how many of the last bytes may be the beginning of a start."""
    return next((size for size in range(len(_START) - 1, 0, -1) if text.endswith(_START[:size])), 0)


# Texts of a device may contain these, but XML does not allow them.
_CONTROL_CHARACTERS = bytes(set(range(32)) - set(b"\t\n\r"))
_NONCHARACTERS = re.compile(b"\xef\xbf[\xbe\xbf]")
_DATE = re.compile(rb"<date>([^<]*)</date>")


def read_document(text: bytes) -> tuple[str, Any]:
    """Returns the type and the value of the document, as plistlib reads them. Raises ValueError if
    it is incomplete, too long, too deep, or not a property list with a type."""
    if len(text) >= LIMIT:
        raise ValueError("the document is too long")
    document = _NONCHARACTERS.sub(b"", text.translate(None, _CONTROL_CHARACTERS))
    try:
        root = plistlib.loads(_DATE.sub(_readable_date, document), fmt=plistlib.FMT_XML)
        document_type, value = root["Type"], root["Value"]
    except Exception as fault:  # plistlib does not document what it raises
        raise ValueError(f"{type(fault).__name__}: {fault}") from fault
    if not isinstance(document_type, str):
        raise ValueError("the type is not a string")
    if _is_deep(value):
        raise ValueError("the values are nested too deeply")
    return document_type, value


def parse_document(text: bytes) -> Event:
    """Returns the content of the document. Raises nothing."""
    try:
        document_type, value = read_document(text)
    except ValueError as fault:
        return UnreadableDocument(text[:LIMIT], str(fault))
    try:
        return _EVENTS[document_type](value)
    except (KeyError, TypeError, ValueError, AttributeError):
        return UnknownDocument(document_type, value)


def _readable_date(match: re.Match[bytes]) -> bytes:
    # Years before 1 and after 9999 are possible.
    try:
        datetime.datetime.strptime(match[1].decode(), "%Y-%m-%dT%H:%M:%SZ")
        return match[0]
    except ValueError:
        return b"<string>" + match[1] + b"</string>"


def _is_deep(value: Any) -> bool:
    level = [value]
    for _ in range(DEPTH_LIMIT):
        level = [member for container in level if isinstance(container, (list, dict))
                 for member in (container.values() if isinstance(container, dict) else container)]
        if not level:
            return False
    return True


def _typed(kind: type[Any], value: Any) -> Any:
    """Returns the value. Raises TypeError if it is of another type."""
    if type(value) is not kind:  # True is an int to isinstance
        raise TypeError(f"{kind.__name__} expected")
    return value


def _text_or_none(value: Any) -> str | None:
    return None if value is None else str(_typed(str, value))


def _device_list(value: Any) -> DeviceList:
    return DeviceList(tuple(_typed(str, ecid) for ecid in _typed(list, value)))


def _device_info(value: Any) -> DeviceInfo:
    # The tool prints the numbers as signed numbers of their width.
    def unsigned(key: str, bits: int = 32) -> int:
        return int(_typed(int, value[key])) & ((1 << bits) - 1)

    return DeviceInfo(
        ecid=_typed(str, value["ECID"]),
        product_id=unsigned("ProductID", 16),
        board_id=unsigned("BoardID"),
        chip_id=unsigned("ChipID"),
        product_type=unsigned("ProductType"),
        fusing_info=unsigned("FusingInfo"),
        location_id=unsigned("LocationID"),
        serial_number=_text_or_none(value.get("SerialNumber")),
        product_string=_text_or_none(value.get("ProductString")),
    )


def _error_details(value: Any) -> ErrorDetails:
    return ErrorDetails(_typed(str, value.get("Domain", "")), _typed(int, value.get("Code", 0)),
                        _typed(str, value.get("Description", "")),
                        _typed(str, value.get("FailureReason", "")))


def _restore_status(value: Any) -> RestoreStatus:
    error = value.get("Error")
    return RestoreStatus(
        status=_typed(str, value["Status"]),
        operation=_typed(int, value["Operation"]),
        progress=_typed(int, value["Progress"]),
        operation_name=_text_or_none(value.get("QN_OperationName")),
        error=_error_details(error) if isinstance(error, dict) else None,
        details=value,
    )


_EVENTS: dict[str, Callable[[Any], Event]] = {
    "DeviceList": _device_list,
    "DeviceInfo": _device_info,
    "CommandSuccess": lambda value: CommandSuccess(),
    "RestoreStatus": _restore_status,
    "InternalError": lambda value: InternalError(_error_details(value)),
}
