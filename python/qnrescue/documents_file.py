"""Reads the documents of a job from their file, while it grows and later."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

from qnrescue.documents import DocumentSplitter, parse_document
from qnrescue.events import Event

_CHUNK = 1 << 16


class DocumentsFile:
    """A reader of a file of documents. What follows them up to the end is NULs, if space was
    reserved: no document holds one."""

    def __init__(self, path: Path) -> None:
        self._path = path
        self._splitter = DocumentSplitter()
        self.size = 0  # how much has been read, in bytes

    def read(self) -> Iterator[Event]:
        """Yields what has come since the last time; nothing if there is no file yet. Raises
        OSError if it cannot be read."""
        try:
            file = self._path.open("rb")
        except FileNotFoundError:
            return
        with file:
            file.seek(self.size)
            while chunk := file.read(_CHUNK).partition(b"\0")[0]:
                self.size += len(chunk)
                for document in self._splitter.feed(chunk):
                    yield parse_document(document)
                file.seek(self.size)
