"""Plays a day at the bench in fast motion: devices come and go, some fail, hang or are unplugged;
the operator's terminal and the supervisor are killed again and again. Then it compares the traces
of the simulator, the history of the bench and the processes with the plan.

The package has to be installed in the Python that runs this. The words after the options start the
tool, with the simulator."""

from __future__ import annotations

import argparse
import random
import statistics
import sys
import tempfile
import time
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "python" / "tests"))

from machine_of_tests import Machine  # noqa: E402
from plan import RETRIES, SILENCE, Stay, make_plan, write_scenario  # noqa: E402
from terminal import Terminal  # noqa: E402

# How long a device is away before the bench takes it for unplugged, in seconds.
AWAY = 5
# How long the last restores and the supervisor may take to end, in seconds.
LIMIT = 120
# How long the day takes to begin, and how long the last devices are left alone, in seconds.
MARGIN = 6.0


class Day:
    """A day under way."""

    def __init__(self, machine: Machine, stays: Sequence[Stay], chance: random.Random) -> None:
        self._machine = machine
        self._stays = stays
        self._chance = chance
        self._terminal = self._open_terminal()
        self._began = time.monotonic()
        self.ends_of_terminals = 0
        self.ends_of_supervisors = 0

    def _open_terminal(self) -> Terminal:
        return Terminal(self._machine, "--restore", str(self._machine.bundle), "--retry",
                        str(RETRIES), "--away", str(AWAY), "--silence-timeout", str(SILENCE),
                        "--detect-timeout", "1")

    def play(self, terminals: int, supervisors: int) -> None:
        """Plays the day; so many terminals and supervisors are ended."""
        last = max(stay.departure for stay in self._stays)
        events = [(self._chance.uniform(MARGIN, last), self._end_terminal)
                  for _ in range(terminals)]
        events += [(self._chance.uniform(MARGIN, last), self._end_supervisor)
                   for _ in range(supervisors)]
        for at, act in sorted(events, key=lambda event: event[0]):
            time.sleep(max(0.0, self._began + at - time.monotonic()))
            act()
        time.sleep(max(0.0, self._began + last + AWAY + MARGIN - time.monotonic()))
        _wait_until("the last jobs end", lambda: not self._machine.ask("jobs"))
        self._terminal.type_control_c()
        self._terminal.wait()
        _wait_until("all processes end", lambda: not self._machine.processes())

    def _end_terminal(self) -> None:
        end = self._chance.choice([Terminal.kill, Terminal.hang_up, Terminal.type_control_c])
        if self._terminal.process.poll() is not None:
            raise AssertionError(f"the command has ended: {self._terminal.shown[-2000:]!r}")
        end(self._terminal)
        self._terminal.wait()
        self.ends_of_terminals += 1
        self._terminal = self._open_terminal()

    def _end_supervisor(self) -> None:
        _wait_until("a supervisor is there", self._machine.kill_supervisor)
        self.ends_of_supervisors += 1


def _wait_until(what: str, holds: Callable[[], bool]) -> None:
    limit = time.monotonic() + LIMIT
    while not holds():
        if time.monotonic() >= limit:
            raise AssertionError(f"not within {LIMIT} s: {what}")
        time.sleep(0.2)


def compare(machine: Machine, stays: Sequence[Stay]) -> list[str]:
    """Returns what is not as planned."""
    restores = machine.restores()
    history = machine.ask("history", "--limit", "0")
    faults: list[str] = []
    for stay in stays:
        jobs = [job for job in history if job["device"] == stay.ecid]
        started = [job for job, device in restores if device == stay.ecid]
        if fault := _fault(stay, jobs, started):
            faults.append(f"{fault}: {stay.ecid} ({stay.kind.name}), restores of {started}, jobs "
                          + str([(job["id"], job["state"], job["reason"]) for job in jobs]))
    planned = {stay.ecid for stay in stays}
    others = {job["device"] for job in history} | {device for _, device in restores}
    faults += [f"nobody planned {ecid}" for ecid in others - planned]
    faults += [f"not there: {path}" for job in history if job["state"] != "interrupted"
               for path in (job["documents"], job["log"]) if not Path(path).exists()]
    faults += [f"left over: {process}" for process in machine.processes()]
    return faults


def _fault(stay: Stay, jobs: Sequence[dict[str, Any]], started: Sequence[str]) -> str:
    """Returns what is wrong with the restores of a device; empty if nothing is.

    A supervisor that is killed between its claim and the start leaves an interrupted job, whose
    tool was never started. The next try repeats it."""
    idle = [job["id"] for job in jobs if job["state"] == "interrupted"]
    tries = [job["id"] for job in jobs if job["state"] != "interrupted"]
    if sorted(started) != sorted(tries):
        return "not exactly one restore for each job"
    if not {job["state"] for job in jobs if job["id"] in tries} <= set(stay.kind.states):
        return "ended in another way"
    if len(tries) != stay.kind.restores and len(jobs) != stay.kind.restores:
        return "restored too often or too rarely"
    if not tries or len(idle) > RETRIES:
        return "never restored"
    return ""


def delays(machine: Machine, stays: Sequence[Stay]) -> list[float]:
    """Returns how long after its arrival the first restore of each device was started."""
    arrivals = {stay.ecid: machine.began() + stay.arrival for stay in stays}
    first: dict[str, float] = {}
    for job in machine.ask("history", "--limit", "0"):
        if job["started_at"] is not None:
            first[job["device"]] = min(job["started_at"], first.get(job["device"], float("inf")))
    return sorted(first[ecid] - arrivals[ecid] for ecid in first)


def main() -> int:
    """Plays a day and returns the exit status."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--slots", type=int, default=16)
    parser.add_argument("--devices", type=int, default=200)
    parser.add_argument("--terminals", type=int, default=20, help="how many are ended")
    parser.add_argument("--supervisors", type=int, default=10, help="how many are ended")
    parser.add_argument("--keep", type=Path, metavar="FOLDER", help="where to work, and leave it")
    parser.add_argument("tool", nargs="+")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="bench_day.", ignore_cleanup_errors=True) as folder:
        path = options.keep or Path(folder)
        path.mkdir(exist_ok=True)
        machine = Machine(path, options.tool)
        try:
            return _run(machine, options)
        finally:
            machine.end_processes()


def _run(machine: Machine, options: argparse.Namespace) -> int:
    stays = make_plan(options.seed, options.slots, options.devices)
    write_scenario(stays, machine.scenario)
    print(f"seed {options.seed}: {len(stays)} devices in {options.slots} slots,"
          f" {max(stay.departure for stay in stays):.0f} s", flush=True)
    day = Day(machine, stays, random.Random(options.seed))
    day.play(options.terminals, options.supervisors)
    faults = compare(machine, stays)
    for fault in faults:
        print(fault)
    late = delays(machine, stays)
    print(f"{len(machine.restores())} restores, {day.ends_of_terminals} terminals and"
          f" {day.ends_of_supervisors} supervisors ended; from arrival to start: median"
          f" {statistics.median(late):.1f} s, at most {late[-1]:.1f} s")
    print(f"0 passed, {len(faults)} failed" if faults else f"{len(stays)} passed, 0 failed")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
