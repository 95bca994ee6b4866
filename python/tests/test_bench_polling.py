from __future__ import annotations

import threading
import time

import pytest

from qnrescue.bench import polling
from qnrescue.bench.polling import Poll, Poller
from qnrescue.events import DeviceInfo
from qnrescue.tool import Tool, ToolFailure

A, B = "A" * 16, "B" * 16
TIME_LIMIT = 60.0


class FakeTool:
    """A tool whose lists are given; the last one comes again and again."""

    def __init__(self, *lists: list[str] | Exception) -> None:
        self.lists = list(lists)
        self.asked: list[str] = []

    def list_devices(self) -> list[str]:
        found = self.lists.pop(0) if len(self.lists) > 1 else self.lists[0]
        if isinstance(found, Exception):
            raise found
        return found

    def device_info(self, ecid: str) -> DeviceInfo:
        self.asked.append(ecid)
        if ecid == B:
            raise ToolFailure("gone")
        return DeviceInfo(ecid, 0, 0, 0, 0, 0, 0)


def polls(count: int, tool: FakeTool) -> list[Poll]:
    """Returns the first polls."""
    poller = Poller(tool)  # type: ignore[arg-type]
    try:
        found = [poller.next(TIME_LIMIT) for _ in range(count)]
        return [poll for poll in found if poll is not None]
    finally:
        poller.stop()


def test_a_device_is_asked_when_it_comes() -> None:
    tool = FakeTool([A], [A], [A, B], [B], [A], [])
    found = polls(6, tool)
    assert [sorted(poll.attached or ()) for poll in found] == [[A], [A], [A, B], [B], [A], []]
    assert [list(poll.infos) for poll in found] == [[A], [], [], [], [A], []]
    assert tool.asked == [A, B, A]


def test_a_tool_that_fails(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(polling, "_PAUSE", 0.01)
    failed, missing, well = polls(3, FakeTool(ToolFailure("no library"), OSError(2, "not there"),
                                              [A]))
    assert failed == Poll(None, fault="the devices cannot be listed: no library")
    assert missing == Poll(None, fault="the tool cannot be started: not there", cannot_start=True)
    assert (well.attached, list(well.infos)) == ({A}, [A])


def test_the_stop_waits_for_the_last_poll() -> None:
    class SlowTool(FakeTool):
        def list_devices(self) -> list[str]:
            began.set()
            time.sleep(0.2)
            ended.append(True)
            return []

    began = threading.Event()
    ended: list[bool] = []
    poller = Poller(SlowTool([]))  # type: ignore[arg-type]
    assert began.wait(TIME_LIMIT)
    poller.stop()
    assert ended


def test_the_stop_does_not_wait_for_ever(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(polling, "_LAST_POLL_SECONDS", 0.01)
    hangs = threading.Event()
    tool = FakeTool([])
    monkeypatch.setattr(tool, "list_devices", lambda: hangs.wait() and [])
    Poller(tool).stop()  # type: ignore[arg-type]
    hangs.set()


def test_after_the_stop_nothing_comes() -> None:
    poller = Poller(Tool("nowhere"))
    assert poller.next(TIME_LIMIT) is not None
    poller.stop()
    assert poller.next(2.0) is None
