"""Computes the SHA-256 of bundles beside the program: a bundle may have many gigabytes."""

from __future__ import annotations

import hashlib
from concurrent.futures import Future, ThreadPoolExecutor
from pathlib import Path

_Version = tuple[Path, int, int, int]  # of a file: path, number, bytes, time of the latest change


class Digests:
    """The digests of files as they are now. A file that has changed is read again."""

    def __init__(self, pool: ThreadPoolExecutor) -> None:
        self._pool = pool
        self._found: dict[_Version, Future[str]] = {}

    def of(self, path: Path) -> str | None:
        """Returns the digest as hexadecimal digits; None while it is computed. Raises OSError, and
        tries again at the next call."""
        status = path.stat()
        version = path, status.st_ino, status.st_size, status.st_mtime_ns
        if version not in self._found:
            for old in [each for each in self._found if each[0] == path]:
                del self._found[old]
            self._found[version] = self._pool.submit(_sha256, path)
        if not self._found[version].done():
            return None
        try:
            return self._found[version].result()
        except OSError:
            del self._found[version]
            raise


def _sha256(path: Path) -> str:
    with path.open("rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()
