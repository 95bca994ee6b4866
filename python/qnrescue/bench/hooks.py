"""Runs the operator's commands when devices come, go, and have been restored."""

from __future__ import annotations

import os
import pathlib
import subprocess
import sys
import time
from collections.abc import Mapping
from dataclasses import dataclass
from typing import IO

from qnrescue.bench.display import clean

ARRIVAL, DEPARTURE, END = "arrival", "departure", "end"
EVENTS = (ARRIVAL, DEPARTURE, END)
# How long a command may run, in seconds.
TIME_LIMIT = 300.0

_SHELL_FAULTS = {126: "it cannot be run", 127: "it was not found", 9009: "it was not found"}


@dataclass
class _Run:
    event: str
    process: subprocess.Popen[bytes]
    ends_by: float


class Hooks:
    """The commands by event. They run beside the bench, which waits for none of them. What they
    print goes to a file."""

    def __init__(self, commands: Mapping[str, str], output: pathlib.Path,
                 time_limit: float = TIME_LIMIT) -> None:
        self._commands = {event: commands[event] for event in EVENTS if commands.get(event)}
        self._output = output
        self._time_limit = time_limit
        self._runs: list[_Run] = []

    def start(self, event: str, facts: Mapping[str, object]) -> str:
        """Starts the command for this event, if there is one, with the facts in its environment:
        `ecid` as QNRESCUE_ECID. Returns what went wrong, for people; empty if nothing did."""
        command = self._commands.get(event)
        if command is None:
            return ""
        try:
            with self._open_output() as output:
                # In another session or group, Control-C at the bench does not reach it.
                process = subprocess.Popen(
                    command, shell=True, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                    env={**os.environ, **environment(event, facts)},
                    start_new_session=True, creationflags=_CREATION_FLAGS)
        except (OSError, ValueError) as fault:
            return f"the command on {event} cannot be started: {fault}"
        self._runs.append(_Run(event, process, time.monotonic() + self._time_limit))
        return ""

    def _open_output(self) -> IO[bytes]:
        try:
            return open(self._output, "ab")
        except OSError:  # the command matters more than what it prints
            return open(os.devnull, "ab")

    def look(self) -> list[str]:
        """Ends the commands that run too long. Returns what went wrong since the last call."""
        faults, running = [], []
        for run in self._runs:
            status = run.process.poll()
            if status is None and time.monotonic() < run.ends_by:
                running.append(run)
            elif status is None:
                end_with_children(run.process)
                faults.append(f"the command on {run.event} was ended after"
                              f" {self._time_limit:g} s")
            elif status != 0:
                why = _SHELL_FAULTS.get(status, f"it ended with status {status}")
                faults.append(f"the command on {run.event} failed: {why}")
        self._runs = running
        return faults

    def wait(self, seconds: float) -> list[str]:
        """Waits for the commands, no longer than this. Returns what went wrong."""
        faults, ends_by = self.look(), time.monotonic() + seconds
        while self._runs and time.monotonic() < ends_by:
            time.sleep(0.05)
            faults += self.look()
        return faults


def environment(event: str, facts: Mapping[str, object]) -> dict[str, str]:
    """Returns the variables of a command. Texts of devices are made safe to print."""
    values: dict[str, object] = {"event": event, **facts}
    return {f"QNRESCUE_{name.upper()}": clean(str(value)) for name, value in values.items()
            if value is not None}


if sys.platform == "win32":
    _CREATION_FLAGS = subprocess.CREATE_NEW_PROCESS_GROUP | subprocess.CREATE_NO_WINDOW

    def end_with_children(process: subprocess.Popen[bytes]) -> None:
        """Ends the process and those that it has started."""
        subprocess.run(["taskkill", "/F", "/T", "/PID", str(process.pid)], check=False,
                       stdin=subprocess.DEVNULL, capture_output=True)
        process.wait()
else:
    import signal

    _CREATION_FLAGS = 0

    def end_with_children(process: subprocess.Popen[bytes]) -> None:
        """Ends the process and those that it has started."""
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
