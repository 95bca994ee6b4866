"""The commands that an operator has run on events."""

import os
import shlex
import sys
import time

import psutil
import pytest

from qnrescue.bench.hooks import Hooks, environment

pytestmark = pytest.mark.skipif(sys.platform == "win32", reason="the commands are for sh")


def python(code):
    return f"{shlex.quote(sys.executable)} -c {shlex.quote(code)}"


def test_command_gets_the_facts(tmp_path, monkeypatch):
    for name in [name for name in os.environ if name.startswith("QNRESCUE_")]:
        monkeypatch.delenv(name)
    output = tmp_path / "hooks.log"
    show = python("import os; print(*sorted(f'{k}={v}' for k, v in os.environ.items()"
                  " if k.startswith('QNRESCUE_')), sep='\\n')")
    hooks = Hooks({"arrival": show, "departure": ""}, output)
    assert hooks.start("departure", {}) == ""
    assert hooks.start("end", {}) == ""
    assert not output.exists()
    assert hooks.start("arrival", {"ecid": "A" * 16, "slot": "右 1", "exit_status": None}) == ""
    assert hooks.wait(20) == []
    assert output.read_text("utf-8").splitlines() == [
        f"QNRESCUE_ECID={'A' * 16}", "QNRESCUE_EVENT=arrival", "QNRESCUE_SLOT=右 1"]


def test_texts_of_a_device_are_safe():
    assert environment("end", {"serial": "a\0b\x1b[2J\nc", "seconds": 5}) == {
        "QNRESCUE_EVENT": "end", "QNRESCUE_SERIAL": "a b [2J c", "QNRESCUE_SECONDS": "5"}


@pytest.mark.parametrize("command, fault", [
    ("exit 3", "it ended with status 3"), ("no-such-command-at-all", "it was not found")])
def test_command_that_fails(tmp_path, command, fault):
    hooks = Hooks({"end": command}, tmp_path / "hooks.log")
    assert hooks.start("end", {}) == ""
    assert hooks.wait(20) == [f"the command on end failed: {fault}"]
    assert hooks.look() == []


def test_bench_does_not_wait(tmp_path):
    hooks = Hooks({"end": "sleep 60"}, tmp_path / "hooks.log")
    started = time.monotonic()
    assert [hooks.start("end", {}) for _ in range(3)] == ["", "", ""]
    assert hooks.look() == []
    assert time.monotonic() - started < 30
    for run in hooks._runs:
        run.process.kill()
        run.process.wait()


def test_command_that_runs_too_long_is_ended_with_its_children(tmp_path):
    child = tmp_path / "child"
    hooks = Hooks({"end": f"sleep 60 & echo $! > {child}; wait"}, tmp_path / "hooks.log",
                  time_limit=0.5)
    hooks.start("end", {})
    assert hooks.wait(20) == ["the command on end was ended after 0.5 s"]
    pid = int(child.read_text())
    ended = time.monotonic() + 10
    while psutil.pid_exists(pid) and psutil.Process(pid).status() != psutil.STATUS_ZOMBIE:
        assert time.monotonic() < ended
        time.sleep(0.02)


def test_folder_that_cannot_be_written(tmp_path):
    done = tmp_path / "done"
    hooks = Hooks({"end": f"touch {done}"}, tmp_path / "missing" / "hooks.log")
    assert hooks.start("end", {}) == ""
    assert hooks.wait(20) == []
    assert done.exists()
