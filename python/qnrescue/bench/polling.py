"""Looks for devices, one list after the other, beside the program."""

from __future__ import annotations

import queue
import threading
from collections.abc import Mapping
from dataclasses import dataclass, field

from qnrescue.bench.devices import ask_all
from qnrescue.events import DeviceInfo
from qnrescue.tool import Tool, ToolFailure

# How long to wait after a failure, in seconds.
_PAUSE = 1.0
# How long the last poll may take, in seconds.
_LAST_POLL_SECONDS = 5.0


@dataclass(frozen=True)
class Poll:
    """What a look at the devices has found."""

    attached: frozenset[str] | None  # None: there is no list
    infos: Mapping[str, DeviceInfo] = field(default_factory=dict)  # of the devices that are new
    fault: str = ""  # why there is no list, for people
    cannot_start: bool = False


class Poller:
    """Polls until it is stopped. A device is asked what it is when it was not in the list before.
    """

    def __init__(self, tool: Tool, pause: float = 0.0) -> None:
        """Begins. `pause` is how long to wait after each look, in seconds."""
        self._tool = tool
        self._pause = pause
        self._polls: queue.SimpleQueue[Poll] = queue.SimpleQueue()
        self._stopped = threading.Event()
        self._attached: frozenset[str] = frozenset()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def next(self, timeout: float) -> Poll | None:
        """Returns the next result; None if there is none within `timeout` seconds."""
        try:
            return self._polls.get(timeout=timeout)
        except queue.Empty:
            return None

    def stop(self) -> None:
        """Lets the poll under way be the last one, and waits a few seconds for its end."""
        self._stopped.set()
        self._thread.join(_LAST_POLL_SECONDS)

    def _run(self) -> None:
        while not self._stopped.is_set():
            poll = self._poll()
            self._polls.put(poll)
            self._stopped.wait(self._pause if poll.attached is not None else
                               max(self._pause, _PAUSE))

    def _poll(self) -> Poll:
        try:
            attached = frozenset(self._tool.list_devices())
            infos = ask_all(self._tool, sorted(attached - self._attached))
        except ToolFailure as failure:
            return Poll(None, fault=f"the devices cannot be listed: {failure}")
        except OSError as fault:
            return Poll(None, fault=f"the tool cannot be started: {fault.strerror or fault}",
                        cannot_start=True)
        self._attached = attached
        return Poll(attached, {device: info for device, info in infos.items()
                               if isinstance(info, DeviceInfo)})
