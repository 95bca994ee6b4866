"""From the events of a restore to its state: how far it is, and how it ended."""

from __future__ import annotations

import enum

from qnrescue.events import Event, InternalError, RestoreStatus

# The step that ends a run with `enter_restore_mode`: the device boots into restore mode.
RESTORE_MODE_OPERATION = 9


class JobState(enum.StrEnum):
    """The state of a restore; the value is a word for people."""

    QUEUED = "queued"
    RUNNING = "running"
    SUCCEEDED = "succeeded"
    FAILED = "failed"
    TIMED_OUT = "timed out"  # the tool stopped waiting
    HUNG = "hung"  # nothing was reported for too long
    CANCELLED = "cancelled"
    INTERRUPTED = "interrupted"  # the tool ended, and nobody knows how
    REFUSED = "refused"  # it never started

    @property
    def is_end(self) -> bool:
        """Returns whether a job in this state never changes again."""
        return self not in (JobState.QUEUED, JobState.RUNNING)


class RestoreProgress:
    """Follows one run of the tool that restores a device.

    `operation`, `step` and `progress` are those of the latest report. The outcome depends on what
    was reported, not on the order."""

    def __init__(self, *, enter_restore_mode: bool = False) -> None:
        self._enter_restore_mode = enter_restore_mode
        self._complete = False
        self._failure = ""
        self._error = ""
        self._timeout = ""
        self.operation: int | None = None
        self.step = ""
        self.progress = 0  # percent

    def feed(self, event: Event) -> None:
        """Takes over the next event."""
        if isinstance(event, InternalError):
            if event.is_restore_timeout:
                self._timeout = self._timeout or str(event.error)
            else:
                self._error = self._error or str(event.error)
        elif isinstance(event, RestoreStatus):
            self.operation, self.step = event.operation, event.step
            self.progress = min(100, max(0, event.progress))
            if event.is_failure:
                self._failure = self._failure or str(event.error or event.status)
            self._complete = self._complete or self._completes(event)

    def _completes(self, event: RestoreStatus) -> bool:
        in_restore_mode = event.operation == RESTORE_MODE_OPERATION
        return event.is_complete or (self._enter_restore_mode and in_restore_mode)

    @property
    def has_failed(self) -> bool:
        """Returns whether the device has reported a failure: the tool would only wait now."""
        return bool(self._failure)

    def ended(self, exit_status: int | None, last_words: str = "") -> tuple[JobState, str]:
        """Returns the state after the end of the tool and the reason, for people. An exit status of
        None is not known. `last_words` is what the tool wrote last to standard error."""
        if self._failure or self._error:
            return JobState.FAILED, self._failure or self._error
        if self._timeout:
            return JobState.TIMED_OUT, self._timeout
        if self._complete and exit_status in (0, None):
            return JobState.SUCCEEDED, ""
        said = f": {last_words}" if last_words else ""
        if exit_status is None:
            return JobState.INTERRUPTED, f"the tool ended without a final report{said}"
        return JobState.FAILED, f"ended with status {exit_status}{said}"
