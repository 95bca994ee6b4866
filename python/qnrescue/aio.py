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
import subprocess
import tempfile
from collections.abc import AsyncIterator, Callable, Sequence
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import TypeVar, cast

from qnrescue import commands
from qnrescue.desk import Desk
from qnrescue.documents import DocumentSplitter, parse_document
from qnrescue.events import (CommandSuccess, DeviceInfo, DeviceList, Event, UnreadableDocument)
from qnrescue.jobs import Job, JobOrder
from qnrescue.outcome import JobState, RestoreProgress
from qnrescue.places import BenchFolder
from qnrescue.tool import (DRAIN_SECONDS, Command, Silence, command_words, describe_end, last_line,
                           pick)

_Expected = TypeVar("_Expected", bound=Event)
_Result = TypeVar("_Result")


class AsyncRun:
    """A process of the tool. Iterating yields its events until it ends, and raises Silence if it
    reports nothing for `silence_timeout` seconds. Leaving the context ends the process."""

    def __init__(self, words: Sequence[str], silence_timeout: float | None = None) -> None:
        self._words = words
        self._silence_timeout = silence_timeout
        self._splitter = DocumentSplitter()

    async def start(self) -> None:
        """Starts the command. Raises OSError if that fails."""
        self._errors = tempfile.TemporaryFile()
        try:
            self._process = await asyncio.create_subprocess_exec(
                *self._words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=self._errors)
        except BaseException:
            self._errors.close()
            raise
        self._output = cast(asyncio.StreamReader, self._process.stdout)

    async def __aenter__(self) -> AsyncRun:
        return self

    async def __aexit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                        trace: TracebackType | None) -> None:
        await self.kill()
        self._errors.close()

    async def __aiter__(self) -> AsyncIterator[Event]:
        while chunk := await self._read():
            for document in self._splitter.feed(chunk):
                yield parse_document(document)
        if self._splitter.pending:
            yield UnreadableDocument(self._splitter.pending, "the output ends within a document")
        await self._process.wait()

    async def _read(self) -> bytes:
        reading = asyncio.ensure_future(self._output.read(65536))
        ending = asyncio.ensure_future(self._process.wait())
        try:
            await asyncio.wait((reading, ending), timeout=self._silence_timeout,
                               return_when=asyncio.FIRST_COMPLETED)
            if ending.done() and not reading.done():
                await asyncio.wait((reading,), timeout=DRAIN_SECONDS)
                return reading.result() if reading.done() else b""
            if not reading.done():
                raise Silence(f"no report for {self._silence_timeout:g} s")
            return reading.result()
        finally:
            for task in (reading, ending):
                task.cancel()

    @property
    def status(self) -> int | None:
        """Returns the exit status; None while the process runs."""
        return self._process.returncode

    async def kill(self) -> None:
        """Ends the process, unless it has ended by itself."""
        if self.status is None:
            self._process.kill()
        await self._process.wait()

    def error_output(self) -> bytes:
        """Returns what the tool wrote to standard error. Call this after the tool has ended, and
        before leaving the context."""
        self._errors.seek(0)
        return self._errors.read()


class AsyncRestore(AsyncRun):
    """A run that restores a device. Iterate to the end: then the process has ended, `state` is how,
    and `reason` why, for people. Silence is an end here and raises nothing."""

    def __init__(self, words: Sequence[str], silence_timeout: float | None = None, *,
                 enter_restore_mode: bool = False) -> None:
        super().__init__(words, silence_timeout)
        self.progress = RestoreProgress(enter_restore_mode=enter_restore_mode)
        self.state = JobState.RUNNING
        self.reason = ""

    async def __aenter__(self) -> AsyncRestore:
        return self

    async def __aiter__(self) -> AsyncIterator[Event]:
        try:
            async for event in super().__aiter__():
                self.progress.feed(event)
                if self.progress.has_failed:
                    await self._end(*self.progress.ended(None))  # the tool would only wait now
                    yield event
                    return
                yield event
        except Silence as silence:
            await self._end(JobState.HUNG, str(silence))
            return
        await self._end(*self.progress.ended(self.status, last_line(self.error_output())))

    async def kill(self) -> None:
        """Ends the process. If it was running, the restore is cancelled."""
        if self.status is None:
            await self._end(JobState.CANCELLED, "")
        await super().kill()

    async def _end(self, state: JobState, reason: str) -> None:
        if self.state is JobState.RUNNING:
            self.state, self.reason = state, reason
            await super().kill()


@dataclass(frozen=True)
class AsyncTool:
    """How to start the tool. Its processes are independent of each other."""

    command: Command = "qnrescue"  # a script has to `exec` the tool, so that the tool can be ended
    detect_timeout: int | None = None  # seconds; None: the tool's default
    silence_timeout: float | None = None  # seconds; None: no limit

    async def start(self, *arguments: str) -> AsyncRun:
        """Starts a run with any arguments. Raises OSError if that fails."""
        run = AsyncRun([*command_words(self.command), *arguments], self.silence_timeout)
        await run.start()
        return run

    async def list_devices(self) -> list[str]:
        """Returns the ECIDs of the devices that are attached when the detection timeout expires.
        Raises ToolFailure or OSError, as all commands do."""
        arguments = commands.list_devices(detect_timeout=self.detect_timeout)
        return list((await self._ask(DeviceList, arguments)).ecids)

    async def device_info(self, ecid: str) -> DeviceInfo:
        """Returns the properties of the device, as soon as it is attached."""
        return await self._ask(DeviceInfo,
                               commands.device_info(ecid, detect_timeout=self.detect_timeout))

    async def exit_recovery(self, ecid: str) -> None:
        """Boots the device out of recovery mode."""
        await self._ask(CommandSuccess,
                        commands.exit_recovery(ecid, detect_timeout=self.detect_timeout))

    async def no_exit_recovery(self, ecid: str) -> None:
        """Keeps the device in recovery mode when it reboots."""
        await self._ask(CommandSuccess,
                        commands.no_exit_recovery(ecid, detect_timeout=self.detect_timeout))

    async def restore(self, ecid: str, bundle: str | os.PathLike[str], *, erase: bool = False,
                      enter_restore_mode: bool = False, timeout: int | None = None,
                      log_file: str | os.PathLike[str] | None = None) -> AsyncRestore:
        """Starts to restore the device. The tool stops waiting after `timeout` seconds."""
        return await self._restore(
            commands.restore(ecid, os.fspath(bundle), erase=erase, restore_timeout=timeout,
                             enter_restore_mode=enter_restore_mode,
                             log_file=None if log_file is None else os.fspath(log_file),
                             detect_timeout=self.detect_timeout), enter_restore_mode)

    async def restore_plist(self, ecid: str, plist: str | os.PathLike[str], *,
                            enter_restore_mode: bool = False,
                            log_file: str | os.PathLike[str] | None = None) -> AsyncRestore:
        """Starts to restore the device with the options in a property-list file."""
        return await self._restore(
            commands.restore_plist(ecid, os.fspath(plist), enter_restore_mode=enter_restore_mode,
                                   log_file=None if log_file is None else os.fspath(log_file),
                                   detect_timeout=self.detect_timeout), enter_restore_mode)

    async def _restore(self, arguments: list[str], enter_restore_mode: bool) -> AsyncRestore:
        restore = AsyncRestore([*command_words(self.command), *arguments], self.silence_timeout,
                               enter_restore_mode=enter_restore_mode)
        await restore.start()
        return restore

    async def _ask(self, kind: type[_Expected], arguments: list[str]) -> _Expected:
        async with await self.start(*arguments) as run:
            events = [event async for event in run]
            return pick(kind, events, describe_end(run.status, run.error_output()))


class AsyncDesk:
    """The jobs of a bench. Jobs run on when the desk closes or its process ends."""

    def __init__(self, folder: str | Path | BenchFolder | None = None) -> None:
        self._folder = folder
        self._thread = ThreadPoolExecutor(max_workers=1)  # a desk belongs to one thread

    async def __aenter__(self) -> AsyncDesk:
        self._desk = await self._call(lambda: Desk(self._folder))
        return self

    async def __aexit__(self, kind: type[BaseException] | None, fault: BaseException | None,
                        trace: TracebackType | None) -> None:
        await self._call(self._desk.close)
        self._thread.shutdown()

    async def _call(self, function: Callable[[], _Result]) -> _Result:
        return await asyncio.get_running_loop().run_in_executor(self._thread, function)

    async def order(self, order: JobOrder, *, job_id: str | None = None,
                    asked_by: str | None = None) -> Job:
        """Orders a restore and returns its job, which may have been refused."""
        return await self._call(lambda: self._desk.order(order, job_id=job_id, asked_by=asked_by))

    async def cancel(self, job_id: str, *, asked_by: str | None = None) -> Job:
        """Orders the end of a job and returns it as it is now. Raises KeyError without such a
        job."""
        return await self._call(lambda: self._desk.cancel(job_id, asked_by=asked_by))

    async def job(self, job_id: str) -> Job:
        """Returns the job as it is now. Raises KeyError if there is none with this id."""
        return await self._call(lambda: self._desk.journal.job(job_id))

    async def changes(self, *job_ids: str) -> AsyncIterator[Job]:
        """Yields each of the jobs as it is now, and again at each change, until all have ended."""
        follower = await self._call(lambda: self._desk.follower(*job_ids))
        while True:
            for job in await self._call(follower.news):
                yield job
            if follower.is_over:
                return
            await asyncio.sleep(follower.POLL_SECONDS)

    async def wait(self, job_id: str) -> Job:
        """Waits for the end of the job and returns it."""
        async for _ in self.changes(job_id):
            pass
        return await self.job(job_id)
