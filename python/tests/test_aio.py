from __future__ import annotations

import asyncio
import os
import signal
import sys
from pathlib import Path

import pytest

from bench_of_tests import FAKE_TOOL, TIME_LIMIT, TestBench
from plists import ECID
from qnrescue.aio import AsyncDesk, AsyncTool
from qnrescue.events import InternalError, UnreadableDocument
from qnrescue.outcome import JobState
from qnrescue.tool import Silence, ToolFailure
from test_tool import ENDS, HOLDER, bundle  # noqa: F401

TOOL = AsyncTool(FAKE_TOOL)


def run(coroutine):
    """Runs the test's coroutine, for a limited time."""
    return asyncio.run(asyncio.wait_for(coroutine, TIME_LIMIT))


def test_commands() -> None:
    async def test() -> None:
        assert await TOOL.list_devices() == [ECID, "000A35D83C60802E"]
        assert (await TOOL.device_info(ECID)).board_id == 7
        await TOOL.exit_recovery(ECID)
        await TOOL.no_exit_recovery(ECID)

    run(test())


@pytest.mark.parametrize("ask, words", [
    (lambda tool: tool.list_devices(), ["--list-devices", "--detect-timeout", "5"]),
    (lambda tool: tool.device_info(ECID), ["--device-info", "--ecid", ECID, "--detect-timeout",
                                           "5"]),
    (lambda tool: tool.exit_recovery(ECID), ["--exit-recovery", "--ecid", ECID, "--detect-timeout",
                                             "5"]),
    (lambda tool: tool.no_exit_recovery(ECID), ["--no-exit-recovery", "--ecid", ECID,
                                                "--detect-timeout", "5"]),
    (lambda tool: tool.restore(ECID, Path("b"), erase=True, timeout=9, log_file=Path("l"),
                               enter_restore_mode=True),
     ["--restore", "b", "--ecid", ECID, "--detect-timeout", "5", "--erase", "--enter-restore-mode",
      "--restore-timeout", "9", "--amr-logfile", "l"]),
    (lambda tool: tool.restore_plist(ECID, Path("o"), log_file=Path("l"), enter_restore_mode=True),
     ["--restore-plist", "o", "--ecid", ECID, "--detect-timeout", "5", "--enter-restore-mode",
      "--amr-logfile", "l"]),
])
def test_every_command_passes_its_arguments(tmp_path: Path, ask, words) -> None:
    path = tmp_path / "words"
    tool = AsyncTool([sys.executable, "-c",
                      "import sys; open(sys.argv[1], 'w').write(repr(sys.argv[2:]))", str(path)],
                     detect_timeout=5)

    async def test() -> None:
        try:
            async with await ask(tool) as restore:
                assert [event async for event in restore] == []
        except ToolFailure as failure:
            assert str(failure) == "ended with status 0"

    run(test())
    assert path.read_text() == repr(words)


def test_failures(tmp_path: Path) -> None:
    async def test() -> None:
        with pytest.raises(ToolFailure, match="^ended with status 3: oops$"):
            await AsyncTool([sys.executable, "-c", "import sys; print('oops', file=sys.stderr);"
                             "sys.exit(3)"]).list_devices()
        with pytest.raises(FileNotFoundError):
            await AsyncTool(tmp_path / "missing").list_devices()

    run(test())


def test_an_error_of_the_tool(bundle) -> None:  # noqa: F811
    async def test() -> None:
        async with await TOOL.start("--restore", str(bundle("no-device", "exit 4"))) as one:
            (event,) = [event async for event in one]
            assert isinstance(event, InternalError)
            assert one.status == 4

    run(test())


def test_output_that_ends_within_a_document() -> None:
    async def test() -> None:
        async with await AsyncTool([sys.executable, "-c", "print('<?xml half')"]).start() as one:
            (event,) = [event async for event in one]
            assert isinstance(event, UnreadableDocument)

    run(test())


def test_silence() -> None:
    async def test() -> None:
        tool = AsyncTool([sys.executable, "-c", "import time; time.sleep(600)"],
                         silence_timeout=0.3)
        async with await tool.start() as one:
            with pytest.raises(Silence, match="no report for 0.3 s"):
                [event async for event in one]
            assert one.status is None
        assert one.status == -signal.SIGKILL

    run(test())


@pytest.mark.parametrize("actions, state, reason", ENDS)
def test_how_a_restore_ends(bundle, actions, state, reason) -> None:  # noqa: F811
    async def test() -> None:
        tool = AsyncTool(FAKE_TOOL, silence_timeout=1.5)
        async with await tool.restore(ECID, bundle(*actions)) as restore:
            assert restore.state is JobState.RUNNING
            events = [event async for event in restore]
            assert restore.status is not None
        assert events and (restore.state, restore.reason) == (state, reason)

    run(test())


def test_a_restore_up_to_restore_mode(bundle) -> None:  # noqa: F811
    async def test() -> None:
        for order in (TOOL.restore, TOOL.restore_plist):
            async with await order(ECID, bundle("report 9 15"), enter_restore_mode=True) as one:
                [event async for event in one]
            assert one.state is JobState.SUCCEEDED

    run(test())


def test_a_restore_that_is_left_is_cancelled(bundle) -> None:  # noqa: F811
    async def test() -> None:
        async with await TOOL.restore(ECID, bundle("report 3 1", "wait 600")) as restore:
            async for _ in restore:
                break
        assert restore.state is JobState.CANCELLED
        assert restore.status == -signal.SIGKILL

    run(test())


def test_restores_at_once(tmp_path: Path) -> None:
    """Each of them waits for the other one."""
    (tmp_path / "a").write_text(f"report 3 1\nwait-for {tmp_path / 'b.go'}\ncomplete")
    (tmp_path / "b").write_text(f"report 3 1\nwait-for {tmp_path / 'a.go'}\ncomplete")

    async def restore(name: str) -> JobState:
        async with await TOOL.restore(ECID, tmp_path / name) as one:
            async for _ in one:
                (tmp_path / f"{name}.go").touch()
        return one.state

    async def test() -> None:
        assert await asyncio.gather(restore("a"), restore("b")) == [JobState.SUCCEEDED] * 2

    run(test())


def test_a_restore_is_left_while_it_is_awaited(bundle) -> None:  # noqa: F811
    async def test() -> None:
        with pytest.raises(TimeoutError):
            async with await TOOL.restore(ECID, bundle("wait 600")) as restore:
                async with asyncio.timeout(0.3):
                    [event async for event in restore]
        assert restore.state is JobState.CANCELLED

    run(test())


@pytest.mark.skipif(os.name != "posix", reason="fork")
def test_output_that_another_process_holds_open_is_not_awaited() -> None:
    async def test() -> None:
        async with await AsyncTool([sys.executable, "-c", HOLDER]).start() as one:
            assert [event async for event in one] == []
            os.kill(int(one.error_output()), signal.SIGKILL)

    run(test())


def test_jobs(bench: TestBench) -> None:
    async def test() -> None:
        async with AsyncDesk(bench.folder) as desk:
            job = await desk.order(bench.order("report 3 1", "report 13 60", "complete"),
                                   job_id="order-1", asked_by="me")
            states = [changed.state async for changed in desk.changes(job.id)]
            assert states[-1] is JobState.SUCCEEDED
            assert await desk.wait("order-1") == await desk.job("order-1")
            with pytest.raises(KeyError):
                await desk.job("unknown")
            with pytest.raises(KeyError):
                await desk.cancel("unknown")

    run(test())


def test_jobs_are_cancelled(bench: TestBench) -> None:
    async def test() -> None:
        async with AsyncDesk(bench.folder) as desk:
            job = await desk.order(bench.order("report 3 1", "wait 600"))
            async for changed in desk.changes(job.id):
                if changed.step:
                    await desk.cancel(job.id, asked_by="me")
            ended = await desk.wait(job.id)
            assert (ended.state, ended.reason) == (JobState.CANCELLED, "cancelled by me")

    run(test())
