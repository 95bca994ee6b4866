"""What the measurements report on standard error while they run."""

import sys
import time

SECONDS_BETWEEN_STEPS = 5


class Progress:
    """Counts the rows of the table, of which there are so many in all."""

    def __init__(self, total):
        self._total = total
        self._begun = 0
        self._spoken = 0.0

    def begin(self, what, rows=1):
        """Says that the next rows are being measured."""
        first = self._begun + 1
        self._begun += rows
        which = f"row {first}" if rows == 1 else f"rows {first} to {self._begun}"
        self._say(f"{which} of {self._total}: {what}")

    def step(self, number, count):
        """Says how far the rows are, unless something was said just before."""
        if time.monotonic() - self._spoken >= SECONDS_BETWEEN_STEPS:
            self._say(f"    {number} of {count}")

    def _say(self, text):
        self._spoken = time.monotonic()
        print(f"benchmark: {text}", file=sys.stderr, flush=True)
