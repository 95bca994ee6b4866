"""What viewers of the screen are sent: everything at first, and then what changes."""

from __future__ import annotations

import asyncio
import json
from collections.abc import AsyncIterator
from typing import Any

# How many messages may wait for a viewer. One that is slower is sent everything anew.
_WAITING = 32
_View = dict[str, dict[str, Any]]
_UNKNOWN: dict[str, Any] = {"head": None, "tiles": {}}


def difference(before: _View, after: _View) -> dict[str, Any]:
    """Returns what turns one view into the other: stations with only the tiles that have changed,
    and the names of stations that have gone. Empty if nothing has changed."""
    stations = []
    for name, station in after.items():
        old = before.get(name, _UNKNOWN)
        change: dict[str, Any] = {}
        if station["head"] != old["head"]:
            change["head"] = station["head"]
        if old is _UNKNOWN or list(station["tiles"]) != list(old["tiles"]):
            change["keys"] = list(station["tiles"])
        changed = [tile for key, tile in station["tiles"].items()
                   if tile != old["tiles"].get(key)]
        if changed:
            change["tiles"] = changed
        if change:
            stations.append({"name": name, **change})
    gone = [name for name in before if name not in after]
    return {name: value for name, value in (("stations", stations), ("gone", gone)) if value}


def message(event: str, value: object) -> bytes:
    """Returns a server-sent event."""
    text = json.dumps(value, separators=(",", ":"))
    return f"event: {event}\ndata: {text}\n\n".encode()


class Feed:
    """The latest view and those who follow it."""

    def __init__(self) -> None:
        self._view: _View = {}
        self._viewers: set[_Viewer] = set()
        self._is_closed = False

    @property
    def viewers(self) -> int:
        """Returns how many follow."""
        return len(self._viewers)

    def publish(self, view: _View) -> None:
        """Sends what has changed."""
        change = difference(self._view, view)
        self._view = view
        if change:
            self._send(message("changes", change))

    def beat(self, now: float, notice: str = "") -> None:
        """Shows the viewers that the server is there, what time it is, and what is wrong."""
        self._send(message("beat", {"now": now, "notice": notice}))

    def _send(self, data: bytes) -> None:
        for viewer in self._viewers:
            viewer.put(data)

    def close(self) -> None:
        """Ends all that follow."""
        self._is_closed = True
        for viewer in self._viewers:
            viewer.put(b"")

    async def follow(self, start: dict[str, Any]) -> AsyncIterator[bytes]:
        """Yields everything, with what `start` has beside it, and then what changes, until the
        feed is closed."""
        viewer = _Viewer()
        self._viewers.add(viewer)
        try:
            while not self._is_closed:
                if viewer.is_late:
                    viewer.start_anew()
                    yield message("state", {"stations": [], **difference({}, self._view), **start})
                elif data := await viewer.get():
                    yield data
        finally:
            self._viewers.discard(viewer)


class _Viewer:
    def __init__(self) -> None:
        self._waiting: asyncio.Queue[bytes] = asyncio.Queue()
        self.is_late = True  # has to be sent everything

    def start_anew(self) -> None:
        self._waiting = asyncio.Queue()
        self.is_late = False

    def put(self, data: bytes) -> None:
        if self._waiting.qsize() >= _WAITING:
            self.is_late = True
        else:
            self._waiting.put_nowait(data)

    async def get(self) -> bytes:
        return await self._waiting.get()
