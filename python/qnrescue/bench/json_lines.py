"""The command json: from the tool's documents to JSON Lines, for PowerShell, jq and Node.js."""

from __future__ import annotations

import argparse
import base64
import codecs
import datetime
import json
import math
import sys
from collections.abc import Iterable, Iterator
from pathlib import Path
from typing import IO, Any

from qnrescue.bench.context import CommandFailure, Context
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.documents import DocumentSplitter, read_document

# The type of the line for a document that cannot be read.
UNREADABLE = "UnreadableDocument"

_CHUNK = 1 << 16
# How much of a document that cannot be read is shown, in bytes.
_SHOWN = 1000


def add_commands(actions: argparse._SubParsersAction[Any], common: argparse.ArgumentParser) -> None:
    """Adds the command to the command line."""
    parser = actions.add_parser(
        "json", parents=[common], help="turn the tool's documents into JSON Lines",
        description="Writes each document of the tool as a line of JSON, as soon as it is"
                    " complete: an object with Type and Value. Data become base64, dates text.")
    parser.add_argument("file", metavar="FILE", nargs="?",
                        help="where the documents are; default: standard input")
    parser.set_defaults(act=show_documents)


def show_documents(context: Context) -> int:
    """Shows the documents of the file, or of standard input, as they come."""
    status = ExitStatus.DONE
    with _open(context.options.file) as stream:
        for value in values(_chunks(stream)):
            context.output.line(json.dumps(value))
            if value["Type"] == UNREADABLE:
                status = ExitStatus.FAILED
    return status


def _open(name: str | None) -> IO[bytes]:
    if name is None and sys.stdin is None:
        raise CommandFailure(ExitStatus.NOTHING, "standard input is closed")
    if name is None:
        return sys.stdin.buffer
    try:
        return Path(name).open("rb")
    except OSError as fault:
        raise CommandFailure(ExitStatus.NOTHING, f"{name} cannot be read:"
                                                 f" {fault.strerror}") from fault


def _chunks(stream: IO[bytes]) -> Iterator[bytes]:
    read: Any = getattr(stream, "read1", stream.read)  # does not wait for more than there is
    while chunk := read(_CHUNK):
        yield chunk


def values(chunks: Iterable[bytes]) -> Iterator[dict[str, Any]]:
    """Yields the type and the value of each document, as values for JSON."""
    splitter = DocumentSplitter()
    for chunk in _without_mark(iter(chunks)):
        # No document holds a NUL. While a job runs, they may follow the documents in its file.
        for document in splitter.feed(chunk.replace(b"\0", b"")):
            yield value_of(document)
    if rest := splitter.pending.strip():
        yield _unreadable(rest, "the documents end within this one")


def _without_mark(chunks: Iterator[bytes]) -> Iterator[bytes]:
    """Yields the chunks without the byte order mark that PowerShell 5.1 may put in front."""
    start = b""
    while len(start) < len(codecs.BOM_UTF8) and (chunk := next(chunks, b"")):
        start += chunk
    yield start.removeprefix(codecs.BOM_UTF8)
    yield from chunks


def value_of(document: bytes) -> dict[str, Any]:
    """Returns the type and the value of the document, as values for JSON. Raises nothing."""
    try:
        document_type, value = read_document(document)
    except ValueError as fault:
        return _unreadable(document, str(fault))
    return {"Type": document_type, "Value": _plain(value)}


def _unreadable(document: bytes, reason: str) -> dict[str, Any]:
    return {"Type": UNREADABLE,
            "Value": {"Reason": reason, "Text": document[:_SHOWN].decode("utf-8", "replace")}}


def _plain(value: Any) -> Any:
    """Returns the value with what JSON does not have as text."""
    if isinstance(value, dict):
        return {str(key): _plain(member) for key, member in value.items()}
    if isinstance(value, list):
        return [_plain(member) for member in value]
    if isinstance(value, bytes):
        return base64.b64encode(value).decode("ascii")
    if isinstance(value, datetime.datetime):
        return value.isoformat() + "Z"
    if isinstance(value, float) and not math.isfinite(value):
        return str(value)
    return value
