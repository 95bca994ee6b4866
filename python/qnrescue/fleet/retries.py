"""When the broker is tried again. Stations that lose it at the same moment come back at different
ones, as it could not take them all at once."""

from __future__ import annotations

import random
import time

# How long to wait at most, in seconds: after the first failure, and after many in a row.
FIRST_LIMIT, LAST_LIMIT = 5.0, 30.0


class Retries:
    """Waits of random length, whose limit doubles from failure to failure."""

    def __init__(self) -> None:
        """Begins with a try that is due at once."""
        self._next = 0.0  # by the monotonic clock
        self._limit = FIRST_LIMIT

    @property
    def is_due(self) -> bool:
        """Returns whether it is time for the next try."""
        return time.monotonic() >= self._next

    def note_success(self) -> None:
        """Takes note that there is a connection: its end will be a first failure."""
        self._limit = FIRST_LIMIT

    def note_failure(self) -> None:
        """Takes note of the end of a connection, or of a try in vain."""
        self._next = time.monotonic() + random.uniform(0.0, self._limit)
        self._limit = min(LAST_LIMIT, 2 * self._limit)
