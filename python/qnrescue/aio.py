"""Runs the tool in an asyncio program.

    tool = AsyncTool("qnrescue.exe")
    async with await tool.restore(ecid, "update.ipsw") as restore:
        async for event in restore:
            print(event)
    print(restore.state, restore.reason)

A restore that is run like this ends with this process. `aio.AsyncDesk` orders one that does not."""

from __future__ import annotations

import asyncio
import os
from collections.abc import AsyncIterator, Callable
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import Generic, Self, TypeVar

from qnrescue.desk import Desk
from qnrescue.events import DeviceInfo, Event
from qnrescue.jobs import Job, JobOrder
from qnrescue.outcome import JobState, RestoreProgress
from qnrescue.places import BenchFolder
from qnrescue.tool import Command, Restore, Run, Tool

_Result = TypeVar("_Result")
_Run = TypeVar("_Run", bound=Run)


class _Thread:
    """A thread in which calls that wait are made, one after the other. (The processes of asyncio
    do not exist in every event loop of Windows.)"""

    def __init__(self) -> None:
        self._executor = ThreadPoolExecutor(max_workers=1)

    async def call(self, function: Callable[[], _Result]) -> _Result:
        """Returns what the function returns."""
        return await asyncio.get_running_loop().run_in_executor(self._executor, function)

    def end(self) -> None:
        """Ends the thread, after the call under way."""
        self._executor.shutdown(wait=False)


class AsyncRun(Generic[_Run]):
    """A process of the tool. Iterating yields its events until it ends, and raises Silence if it
    reports nothing for the tool's `silence_timeout`. Leaving the context ends the process."""

    def __init__(self, run: _Run, thread: _Thread) -> None:
        self._run = run
        self._thread = thread

    async def __aenter__(self) -> Self:
        return self

    async def __aexit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                        trace: TracebackType | None) -> None:
        self._run.kill()  # here, so that it ends what the thread may be waiting for
        await self._thread.call(lambda: self._run.__exit__(kind, fault, trace))
        self._thread.end()

    async def __aiter__(self) -> AsyncIterator[Event]:
        events = iter(self._run)
        while (event := await self._thread.call(lambda: next(events, None))) is not None:
            yield event

    @property
    def status(self) -> int | None:
        """Returns the exit status; None while the process runs."""
        return self._run.status

    def kill(self) -> None:
        """Ends the process, unless it has ended by itself."""
        self._run.kill()

    def error_output(self) -> bytes:
        """Returns what the tool wrote to standard error. Call this after the tool has ended, and
        before leaving the context."""
        return self._run.error_output()


class AsyncRestore(AsyncRun[Restore]):
    """A run that restores a device. Iterate to the end: then the process has ended, `state` is how,
    and `reason` why, for people. Silence is an end here and raises nothing."""

    @property
    def state(self) -> JobState:
        """Returns the state of the restore."""
        return self._run.state

    @property
    def reason(self) -> str:
        """Returns why it ended, for people; empty if there is nothing to add."""
        return self._run.reason

    @property
    def progress(self) -> RestoreProgress:
        """Returns how far it is."""
        return self._run.progress


@dataclass(frozen=True)
class AsyncTool:
    """How to start the tool. Its processes are independent of each other."""

    command: Command = "qnrescue"  # a script has to `exec` the tool, so that the tool can be ended
    detect_timeout: int | None = None  # seconds; None: the tool's default
    silence_timeout: float | None = None  # seconds; None: no limit

    @property
    def _tool(self) -> Tool:
        return Tool(self.command, self.detect_timeout, self.silence_timeout)

    async def start(self, *arguments: str) -> AsyncRun[Run]:
        """Starts a run with any arguments. Raises OSError if that fails."""
        thread = _Thread()
        return AsyncRun(await thread.call(lambda: self._tool.start(*arguments)), thread)

    async def list_devices(self) -> list[str]:
        """Returns the ECIDs of the devices that are attached when the detection timeout expires.
        Raises ToolFailure or OSError, as all commands do."""
        return await _alone(self._tool.list_devices)

    async def device_info(self, ecid: str) -> DeviceInfo:
        """Returns the properties of the device, as soon as it is attached."""
        return await _alone(lambda: self._tool.device_info(ecid))

    async def exit_recovery(self, ecid: str) -> None:
        """Boots the device out of recovery mode."""
        await _alone(lambda: self._tool.exit_recovery(ecid))

    async def no_exit_recovery(self, ecid: str) -> None:
        """Keeps the device in recovery mode when it reboots."""
        await _alone(lambda: self._tool.no_exit_recovery(ecid))

    async def restore(self, ecid: str, bundle: str | os.PathLike[str], *, erase: bool = False,
                      enter_restore_mode: bool = False, timeout: int | None = None,
                      log_file: str | os.PathLike[str] | None = None) -> AsyncRestore:
        """Starts to restore the device. The tool stops waiting after `timeout` seconds."""
        return await self._restore(lambda: self._tool.restore(
            ecid, bundle, erase=erase, enter_restore_mode=enter_restore_mode, timeout=timeout,
            log_file=log_file))

    async def restore_plist(self, ecid: str, plist: str | os.PathLike[str], *,
                            enter_restore_mode: bool = False,
                            log_file: str | os.PathLike[str] | None = None) -> AsyncRestore:
        """Starts to restore the device with the options in a property-list file."""
        return await self._restore(lambda: self._tool.restore_plist(
            ecid, plist, enter_restore_mode=enter_restore_mode, log_file=log_file))

    async def _restore(self, start: Callable[[], Restore]) -> AsyncRestore:
        thread = _Thread()
        return AsyncRestore(await thread.call(start), thread)


async def _alone(function: Callable[[], _Result]) -> _Result:
    thread = _Thread()
    try:
        return await thread.call(function)
    finally:
        thread.end()


class AsyncDesk:
    """The jobs of a bench. Jobs run on when the desk closes or its process ends."""

    def __init__(self, folder: str | Path | BenchFolder | None = None) -> None:
        self._folder = folder
        self._thread = _Thread()  # a desk belongs to one thread

    async def __aenter__(self) -> AsyncDesk:
        self._desk = await self._thread.call(lambda: Desk(self._folder))
        return self

    async def __aexit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                        trace: TracebackType | None) -> None:
        await self._thread.call(self._desk.close)
        self._thread.end()

    async def order(self, order: JobOrder, *, job_id: str | None = None,
                    asked_by: str | None = None) -> Job:
        """Orders a restore and returns its job, which may have been refused."""
        return await self._thread.call(
            lambda: self._desk.order(order, job_id=job_id, asked_by=asked_by))

    async def cancel(self, job_id: str, *, asked_by: str | None = None) -> Job:
        """Orders the end of a job and returns it as it is now. Raises KeyError without such a
        job."""
        return await self._thread.call(lambda: self._desk.cancel(job_id, asked_by=asked_by))

    async def job(self, job_id: str) -> Job:
        """Returns the job as it is now. Raises KeyError if there is none with this id."""
        return await self._thread.call(lambda: self._desk.journal.job(job_id))

    async def changes(self, *job_ids: str) -> AsyncIterator[Job]:
        """Yields each of the jobs as it is now, and again at each change, until all have ended."""
        follower = await self._thread.call(lambda: self._desk.follower(*job_ids))
        while True:
            for job in await self._thread.call(follower.news):
                yield job
            if follower.is_over:
                return
            await asyncio.sleep(follower.POLL_SECONDS)

    async def wait(self, job_id: str) -> Job:
        """Waits for the end of the job and returns it."""
        async for _ in self.changes(job_id):
            pass
        return await self.job(job_id)
