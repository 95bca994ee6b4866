"""A lock that its holder's end releases, however it comes."""

from __future__ import annotations

import os
import sys
import time
from pathlib import Path
from types import TracebackType

from qnrescue.places import make_shared_file


class FileLock:
    """A lock on a file, which stays. The processes that the holder starts do not hold it."""

    def __init__(self, path: Path) -> None:
        self._path = path
        self._descriptor: int | None = None

    def try_acquire(self) -> bool:
        """Takes the lock, unless another process or object holds it; returns whether it did. Raises
        OSError if the file cannot be opened."""
        make_shared_file(self._path)
        descriptor = os.open(self._path, os.O_RDONLY)  # another user may have made it
        try:
            _lock(descriptor)
        except OSError:
            os.close(descriptor)
            return False
        self._descriptor = descriptor
        return True

    def acquire(self, timeout: float | None = None) -> bool:
        """Takes the lock and waits for it, up to `timeout` seconds; returns whether it did."""
        limit = None if timeout is None else time.monotonic() + timeout
        while not self.try_acquire():
            if limit is not None and time.monotonic() >= limit:
                return False
            time.sleep(0.01)
        return True

    def release(self) -> None:
        """Releases the lock if it is held."""
        if self._descriptor is not None:
            os.close(self._descriptor)
            self._descriptor = None

    def __enter__(self) -> FileLock:
        return self

    def __exit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.release()


if sys.platform == "win32":
    import msvcrt

    def _lock(descriptor: int) -> None:
        msvcrt.locking(descriptor, msvcrt.LK_NBLCK, 1)

else:
    import fcntl

    def _lock(descriptor: int) -> None:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
