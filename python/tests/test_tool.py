from __future__ import annotations

import os
import signal
import sys
import threading
from pathlib import Path

import pytest

from bench_of_tests import FAKE_TOOL
from fake_tool import NO_DEVICE
from plists import ECID
from qnrescue import processes
from qnrescue.events import InternalError, RestoreStatus, UnreadableDocument
from qnrescue.outcome import JobState
from qnrescue.tool import Silence, Tool, ToolFailure, command_words, describe_end, last_line

TOOL = Tool(FAKE_TOOL)


@pytest.fixture
def bundle(tmp_path: Path):
    """Gives what writes a bundle with these actions."""
    def write(*actions: str) -> Path:
        path = tmp_path / "update.ipsw"
        path.write_text("\n".join(actions))
        return path

    return write


def tool_that_prints(text: str, status: int = 0) -> Tool:
    return Tool([sys.executable, "-c", f"import sys; print({text!r}); sys.exit({status})"])


def test_commands() -> None:
    assert TOOL.list_devices() == [ECID, "000A35D83C60802E"]
    assert TOOL.device_info(ECID).board_id == 7
    TOOL.exit_recovery(ECID)
    TOOL.no_exit_recovery(ECID)


@pytest.fixture
def script(tmp_path: Path) -> Path:
    """Gives a program that prints its arguments as a list of devices."""
    path = tmp_path / "my tool"
    path.write_text("#!/usr/bin/env python3\nimport sys, plistlib\n"
                    "print(plistlib.dumps({'Type': 'DeviceList', 'Value': sys.argv[1:]}).decode())")
    path.chmod(0o755)
    return path


def test_a_command_is_a_string_a_path_or_words(script: Path) -> None:
    assert command_words("qnrescue.exe") == ("qnrescue.exe",)
    for command in (str(script), script, [script], [str(script)]):
        assert Tool(command).list_devices() == ["--list-devices"]
    assert Tool([script, "first"], detect_timeout=5).list_devices() == [
        "first", "--list-devices", "--detect-timeout", "5"]
    with pytest.raises(ValueError):
        command_words([])


@pytest.mark.parametrize("ask, words", [
    (lambda tool: tool.device_info(ECID), ["--device-info", "--ecid", ECID]),
    (lambda tool: tool.exit_recovery(ECID), ["--exit-recovery", "--ecid", ECID]),
    (lambda tool: tool.no_exit_recovery(ECID), ["--no-exit-recovery", "--ecid", ECID]),
    (lambda tool: tool.restore(ECID, Path("b"), erase=True, timeout=9, log_file=Path("l"),
                               enter_restore_mode=True),
     ["--restore", "b", "--ecid", ECID, "--erase", "--enter-restore-mode", "--restore-timeout", "9",
      "--amr-logfile", "l"]),
    (lambda tool: tool.restore_plist(ECID, Path("o"), log_file=Path("l"), enter_restore_mode=True),
     ["--restore-plist", "o", "--ecid", ECID, "--enter-restore-mode", "--amr-logfile", "l"]),
])
def test_every_command_passes_its_arguments(tmp_path: Path, ask, words) -> None:
    path = tmp_path / "words"
    tool = Tool([sys.executable, "-c",
                 "import sys; open(sys.argv[1], 'w').write(repr(sys.argv[2:]))", str(path)])
    try:
        with ask(tool) as run:
            list(run)
    except ToolFailure as failure:
        assert str(failure) == "ended with status 0"
    assert path.read_text() == repr(words)


def test_an_error_of_the_tool(bundle) -> None:
    with TOOL.start("--restore", str(bundle("no-device", "exit 4")), "--ecid", ECID) as run:
        (event,) = run
        assert isinstance(event, InternalError)
        assert run.status == 4


def test_a_device_that_is_not_there() -> None:
    with pytest.raises(ToolFailure, match="^Failed to find device with ecid"):
        TOOL.device_info(NO_DEVICE)


def test_a_tool_that_says_nothing() -> None:
    with pytest.raises(ToolFailure, match="^ended with status 3: oops$"):
        Tool([sys.executable, "-c", "import sys; print('oops\\n', file=sys.stderr);"
              "sys.exit(3)"]).list_devices()


def test_no_such_tool(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError):
        Tool(str(tmp_path / "missing")).list_devices()


def test_output_that_ends_within_a_document() -> None:
    with tool_that_prints("<?xml half").start() as run:
        (event,) = run
    assert isinstance(event, UnreadableDocument)


def test_silence() -> None:
    tool = Tool([sys.executable, "-c", "import time; time.sleep(600)"], silence_timeout=0.3)
    with tool.start() as run:
        with pytest.raises(Silence, match="no report for 0.3 s"):
            list(run)
        assert run.status is None
    assert run.status == -signal.SIGKILL


ENDS = [
    (["report 3 1", "complete"], JobState.SUCCEEDED, ""),
    (["failure", "wait 600"], JobState.FAILED, "the image is damaged"),
    (["timeout"], JobState.TIMED_OUT, "Aborting, restore did not complete in 3 seconds"),
    (["report 3 1", "say oops", "exit 5"], JobState.FAILED, "ended with status 5: oops"),
    (["report 3 1", "wait 600"], JobState.HUNG, "no report for 1.5 s"),
]


@pytest.mark.parametrize("actions, state, reason", ENDS)
def test_how_a_restore_ends(bundle, actions, state, reason) -> None:
    with Tool(FAKE_TOOL, silence_timeout=1.5).restore(ECID, bundle(*actions)) as restore:
        assert restore.state is JobState.RUNNING
        events = list(restore)
        assert restore.status is not None
    assert (restore.state, restore.reason) == (state, reason)
    assert isinstance(events[0], (RestoreStatus, InternalError))


def test_a_restore_up_to_restore_mode(bundle) -> None:
    with TOOL.restore(ECID, bundle("report 9 15"), enter_restore_mode=True) as restore:
        list(restore)
    assert restore.state is JobState.SUCCEEDED
    with TOOL.restore_plist(ECID, bundle("report 9 15"), enter_restore_mode=True) as restore:
        list(restore)
    assert restore.state is JobState.SUCCEEDED


def test_a_restore_that_is_left_is_cancelled(bundle) -> None:
    with TOOL.restore(ECID, bundle("report 3 1", "wait 600")) as restore:
        next(iter(restore))
    assert restore.state is JobState.CANCELLED
    assert restore.status == -signal.SIGKILL


def test_another_thread_may_cancel_a_restore(bundle) -> None:
    with TOOL.restore(ECID, bundle("report 3 1", "wait 600")) as restore:
        events = iter(restore)
        next(events)
        threading.Timer(0.2, restore.kill).start()
        assert list(events) == []
    assert restore.state is JobState.CANCELLED


# Leaves a process behind that holds the output open, and prints its id.
HOLDER = """
import os, sys, time
child = os.fork()
if child == 0:
    time.sleep(20)
else:
    print(child, file=sys.stderr)
"""


@pytest.mark.skipif(os.name != "posix", reason="fork")
def test_output_that_another_process_holds_open_is_not_awaited() -> None:
    with Tool([sys.executable, "-c", HOLDER]).start() as run:
        assert list(run) == []
        child = int(run.error_output())
        assert processes.identify(child) is not None
        os.kill(child, signal.SIGKILL)


def test_last_line() -> None:
    assert last_line(b"") == ""
    assert last_line(b"one\n two \n\n") == "two"
    assert last_line(b"\xff") == "\ufffd"
    assert describe_end(3, b"") == "ended with status 3"
    assert describe_end(None, b"why\n") == "ended with status None: why"
