"""A machine with a bench and simulated devices: a folder with the bench, the world and the traces,
and its processes."""

from __future__ import annotations

import contextlib
import json
import os
import plistlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import zipfile
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

import psutil

from qnrescue.journal import Journal
from qnrescue.processes import is_running

BENCH_PROGRAM = str(Path(sys.executable).with_name("qnrescue-bench"))
# How long processes may take to end that were killed, in seconds.
_END_SECONDS = 30.0
_RESTORE = re.compile(r"^AMRestorableDeviceRestore device=([0-9A-F]{16})", re.MULTILINE)

# The tool, with a trace for each of its processes, by the job if it is for one. A trace is appended
# to a file that is there, so that an id of a process may come again.
_TOOL = """\
#!/bin/sh
job=none
for word; do
    case $word in */restore.log) job=${{word%/*}} job=${{job##*/}} ;; esac
done
export MOBILEDEVICE_SIMULATOR_TRACE={traces}/$job.$$
exec {tool} "$@"
"""


def report(after: float, operation: int, progress: int, status: str = "Restoring",
           **more: Any) -> dict[str, Any]:
    """Returns a report of a restore for a scenario; `after` is in seconds from the one before."""
    return {"After": after, "Status": {"Status": status, "Operation": operation,
                                       "Progress": progress, **more}}


def replace(path: Path, value: object) -> None:
    """Writes a property list; other processes see the file whole at every moment."""
    new = path.with_suffix(".new")
    new.write_bytes(plistlib.dumps(value))
    new.replace(path)


class Machine:
    """A folder with a bench, and the processes that belong to it."""

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
                            "QNRESCUE_BENCH_FOLDER": str(self.bench),
                            "QNRESCUE_MACHINE_FOLDER": str(folder / "machine"), "TERM": "xterm",
                            "PYTHONFAULTHANDLER": "1",
                            "MOBILEDEVICE_SIMULATOR_SCENARIO": str(self.scenario),
                            "MOBILEDEVICE_SIMULATOR_WORLD": str(self.world)}

    def ask(self, *words: str) -> list[dict[str, Any]]:
        """Returns what a command of the bench shows."""
        run = subprocess.run([BENCH_PROGRAM, *words, "--json"], env=self.environment, text=True,
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
        """Returns the processes of this machine that have not ended. Wine's own may stay."""
        return processes_of(self)

    def end_processes(self) -> None:
        """Ends what is left."""
        end_processes(self)


def processes_of(*machines: Machine) -> list[psutil.Process]:
    """Returns the processes of these machines that have not ended. Wine's own may stay."""
    worlds = {str(machine.world) for machine in machines}
    found: list[psutil.Process] = []
    for process in psutil.process_iter():
        with contextlib.suppress(psutil.Error):
            world = process.environ().get("MOBILEDEVICE_SIMULATOR_WORLD")
            if world in worlds and "qnrescue" in " ".join(process.cmdline()):
                found.append(process)
    return found


def end_processes(*machines: Machine) -> None:
    """Ends what is left of these machines, and what that has started meanwhile."""
    limit = time.monotonic() + _END_SECONDS
    while (found := processes_of(*machines)) and time.monotonic() < limit:
        for process in found:
            with contextlib.suppress(psutil.Error):
                process.kill()
        time.sleep(0.05)


@contextlib.contextmanager
def work_folder(prefix: str, keep: Path | None) -> Iterator[Path]:
    """Gives a folder to work in: the one to keep, or a new one. That is removed at the end, but not
    after a failure; then a line says where it is."""
    if keep is not None:
        keep.mkdir(parents=True, exist_ok=True)
        if any(keep.iterdir()):
            sys.exit(f"{keep} is not empty")
        yield keep.absolute()
        return
    path = Path(tempfile.mkdtemp(prefix=prefix))
    try:
        yield path
    except KeyboardInterrupt:
        shutil.rmtree(path, ignore_errors=True)
        raise
    except BaseException:
        print(f"what is left of it: {path}", file=sys.stderr)
        raise
    shutil.rmtree(path, ignore_errors=True)
