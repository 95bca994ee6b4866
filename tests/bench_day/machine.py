"""The machine of the day: a folder with the bench, the world and the traces, and its processes."""

from __future__ import annotations

import contextlib
import json
import os
import pty
import re
import shlex
import signal
import subprocess
import sys
import threading
import time
import zipfile
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import psutil

from qnrescue.journal import Journal
from qnrescue.processes import is_running

_COMMAND = str(Path(sys.executable).with_name("qnrescue-bench"))
_RESTORE = re.compile(r"^AMRestorableDeviceRestore device=([0-9A-F]{16})", re.MULTILINE)

# The tool, with a trace for each of its processes, by the job if it is for one.
_TOOL = """\
#!/bin/sh
job=none
for word; do
    case $word in */restore.log) job=$(basename "${{word%/*}}") ;; esac
done
export MOBILEDEVICE_SIMULATOR_TRACE={traces}/$job.$$-$(date +%s%N)
exec {tool} "$@"
"""


class Machine:
    """A folder for a day, and the processes that belong to it."""

    def __init__(self, folder: Path, tool: Sequence[str]) -> None:
        self.folder = folder
        self.bench = folder / "Prüfstand 名前"
        self.traces = folder / "traces"
        self.scenario = folder / "scenario.plist"
        self.world = folder / "day.world"
        self.bundle = folder / "größer 名前.ipsw"
        self.bench.mkdir()
        self.traces.mkdir()
        self.tool = folder / "qnrescue"
        self.tool.write_text(_TOOL.format(traces=shlex.quote(str(self.traces)),
                                          tool=shlex.join(tool)))
        self.tool.chmod(0o755)
        with zipfile.ZipFile(self.bundle, "w") as archive:
            archive.writestr("BuildManifest.plist", "")
        self.environment = {**os.environ, "QNRESCUE_TOOL": str(self.tool),
                            "QNRESCUE_BENCH_FOLDER": str(self.bench), "TERM": "xterm",
                            "PYTHONFAULTHANDLER": "1",
                            "MOBILEDEVICE_SIMULATOR_SCENARIO": str(self.scenario),
                            "MOBILEDEVICE_SIMULATOR_WORLD": str(self.world)}

    def ask(self, *words: str) -> list[dict[str, Any]]:
        """Returns what a command of the bench shows."""
        run = subprocess.run([_COMMAND, *words, "--json"], env=self.environment, text=True,
                             capture_output=True, timeout=120)
        if run.returncode != 0:
            raise AssertionError(f"{words}: status {run.returncode}, {run.stderr}")
        return [json.loads(line) for line in run.stdout.splitlines()]

    def restores(self) -> list[tuple[str, str]]:
        """Returns the job and the device of each restore that was started, as the traces have
        it."""
        return [(trace.name.split(".")[0], device) for trace in self.traces.iterdir()
                if trace.suffix != ".plist"
                for device in _RESTORE.findall(trace.read_text("utf-8", "replace"))]

    def began(self) -> float:
        """Returns when the world began, in seconds since 1970."""
        text = self.world.read_text("utf-8")
        match = re.search(r"<key>Began</key>\s*<integer>(\d+)<", text)
        assert match
        return int(match[1]) / 1e6

    def kill_supervisor(self) -> bool:
        """Kills the supervisor; returns whether there was one."""
        with Journal(self.bench) as journal:
            supervisor = journal.supervisor()
        if supervisor is None or not is_running(supervisor):
            return False
        os.kill(supervisor.pid, signal.SIGKILL)
        return True

    def processes(self) -> list[psutil.Process]:
        """Returns the processes of this day that have not ended. Wine's own may stay."""
        found: list[psutil.Process] = []
        for process in psutil.process_iter():
            with contextlib.suppress(psutil.Error):
                world = process.environ().get("MOBILEDEVICE_SIMULATOR_WORLD")
                if world == str(self.world) and "qnrescue" in " ".join(process.cmdline()):
                    found.append(process)
        return found

    def end_processes(self) -> None:
        """Ends what is left of a day that did not go as planned."""
        for process in self.processes():
            with contextlib.suppress(psutil.Error):
                process.kill()


class Terminal:
    """A terminal in which the operator watches the bench."""

    def __init__(self, machine: Machine, *words: str) -> None:
        self._master, slave = pty.openpty()
        self.process = subprocess.Popen(
            ["setsid", "--ctty", "env", "--default-signal", _COMMAND, "watch", *words],
            env=machine.environment, stdin=slave, stdout=slave, stderr=slave, cwd=machine.folder)
        os.close(slave)
        self.shown = b""
        threading.Thread(target=self._drain, args=(os.dup(self._master),), daemon=True).start()

    def _drain(self, master: int) -> None:
        try:
            while chunk := os.read(master, 65536):
                self.shown = (self.shown + chunk)[-20000:]
        except OSError:
            pass
        finally:
            os.close(master)

    def type_control_c(self) -> None:
        """Presses Control-C, which somebody can do who sees something."""
        limit = time.monotonic() + 20
        while not self.shown and time.monotonic() < limit:
            time.sleep(0.05)
        os.write(self._master, b"\x03")

    def kill(self) -> None:
        """Ends the command with no chance to do anything."""
        self.process.kill()

    def hang_up(self) -> None:
        """Does what a terminal does that closes."""
        os.killpg(self.process.pid, signal.SIGHUP)

    def wait(self, seconds: float = 20.0) -> None:
        """Waits for the end of the command and closes the terminal."""
        limit = time.monotonic() + seconds
        while self.process.poll() is None and time.monotonic() < limit:
            time.sleep(0.05)
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGABRT)  # shows where it is
            self.process.wait()
            time.sleep(0.5)
            shown = self.shown[-4000:].decode("utf-8", "replace")
            raise AssertionError(f"the command does not end; it showed {shown}")
        os.close(self._master)
