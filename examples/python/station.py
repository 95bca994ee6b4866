#!/usr/bin/env python3
"""A restore station: lists the attached devices, and restores all of them or some at once.

    station.py list [-- COMMAND...]
    station.py restore BUNDLE [ECID...] [-- COMMAND...]

The words after the two dashes are the command that starts the tool; default: qnrescue.exe.
The exit status is 0 if all devices were restored, 1 if not, 2 for invalid arguments, and 130 after
Control-C.
"""

from __future__ import annotations

import argparse
import io
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, replace
from typing import Callable, List, Optional, Sequence

from qnrescue_client import (DeviceInfo, Outcome, Restore, RestoreResult, RestoreStatus, Tool,
                             ToolFailure)
from station_display import Display, make_display

INTERRUPTED = 130

# How long to look for a device before it counts as gone, at least: a device that restarts is absent
# for some seconds.
LOOK_SECONDS = 5


def parse_arguments(words: Sequence[str]) -> argparse.Namespace:
    own, command = list(words), ["qnrescue.exe"]
    if "--" in own:
        dashes = own.index("--")
        own, command = own[:dashes], own[dashes + 1 :]

    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("--detect-timeout", type=int, metavar="SECONDS",
                        help="how long to look for devices; default: 3")
    common.add_argument("--silence-timeout", type=float, default=600, metavar="SECONDS",
                        help="how long a device may report nothing before it counts as hung;"
                             " longer than the detection timeout; default: %(default)s")
    common.add_argument("--plain", action="store_true",
                        help="plain lines, as when the output is not a terminal")

    after_dashes = ("The words after the two dashes are the command that starts the tool;"
                    " default: qnrescue.exe.")
    parser = argparse.ArgumentParser(
        usage="%(prog)s list|restore ... [-- COMMAND...]", epilog=after_dashes,
        description="Lists the attached devices, and restores all of them or some at once.")
    actions = parser.add_subparsers(dest="action", required=True, metavar="list|restore",
                                    prog=parser.prog)
    listing = actions.add_parser("list", parents=[common], epilog=after_dashes,
                                 help="list the attached devices")
    listing.set_defaults(act=list_devices)
    restore = actions.add_parser("restore", parents=[common], epilog=after_dashes,
                                 help="restore devices")
    restore.set_defaults(act=restore_devices)
    restore.add_argument("bundle", metavar="BUNDLE", help="the firmware bundle")
    restore.add_argument("ecids", nargs="*", default=[], metavar="ECID", type=str.upper,
                         help="the devices, without options between them; default: all that are"
                              " attached")
    restore.add_argument("--erase", action="store_true", help="erase the devices")
    restore.add_argument("--restore-timeout", type=int, metavar="SECONDS",
                         help="how long a restore may take; default: 7200")

    options = parser.parse_args(own)
    if not command:
        parser.error("no command after the two dashes")
    options.command = command
    return options


def describe_device(info: DeviceInfo) -> List[str]:
    return [info.ecid, info.serial_number or "", f"{info.chip_id:04X}", f"{info.board_id:02X}",
            f"{info.product_id:04X}", info.product_string or ""]


def list_devices(tool: Tool, display: Display, options: argparse.Namespace) -> int:
    def describe(ecid: str) -> List[str]:
        try:
            return describe_device(tool.device_info(ecid))
        except ToolFailure as failure:
            return [ecid, str(failure)]

    with ThreadPoolExecutor(max_workers=8) as pool:
        rows = list(pool.map(describe, tool.list_devices()))
    display.show_table(["ECID", "serial number", "chip", "board", "product", "name"], rows)
    return 0


@dataclass
class Job:
    """The restore of one device."""

    ecid: str
    restore: Optional[Restore] = None
    result: RestoreResult = RestoreResult(Outcome.STOPPED)
    seconds: float = 0


class Station:
    """Restores devices at the same time, each in its own thread and process."""

    def __init__(self, tool: Tool, display: Display, options: argparse.Namespace) -> None:
        self._tool = tool
        self._display = display
        self._options = options
        self.interrupted = False

    def run(self, jobs: Sequence[Job]) -> None:
        """Fills in the jobs' results. Control-C stops those in progress."""
        threads = [threading.Thread(target=self._work, args=(job,)) for job in jobs]
        with self._display.bars([job.ecid for job in jobs]):
            for thread in threads:
                thread.start()
            try:
                wait_for(threads)
            except KeyboardInterrupt:
                self._interrupt(jobs)
                wait_for(threads)

    def _interrupt(self, jobs: Sequence[Job]) -> None:
        self.interrupted = True
        for job in jobs:
            if job.restore:
                job.restore.kill()

    def _work(self, job: Job) -> None:
        started = time.monotonic()
        try:
            job.result = self._restore(job)
        except Exception as fault:  # whatever it is, it concerns only this device
            job.result = RestoreResult(Outcome.FAILED, str(fault) or type(fault).__name__)
        job.seconds = time.monotonic() - started
        self._display.end(job.ecid, job.result)

    def _restore(self, job: Job) -> RestoreResult:
        with self._tool.restore(job.ecid, self._options.bundle, erase=self._options.erase,
                                timeout=self._options.restore_timeout) as restore:
            job.restore = restore
            if self.interrupted:
                restore.kill()
            for event in restore:
                if isinstance(event, RestoreStatus):
                    self._display.report(job.ecid, event.operation_name or event.status,
                                         event.progress)
            return restore.result


def wait_for(threads: Sequence[threading.Thread]) -> None:
    for thread in threads:
        while thread.is_alive():
            thread.join(0.2)  # Windows handles Control-C only between two joins


def look_for_hung(tool: Tool, jobs: Sequence[Job]) -> None:
    """Adds whether they are still attached to the results of devices that hang."""
    hung = [job for job in jobs if job.result.outcome is Outcome.HUNG]
    if not hung:
        return
    try:
        attached = replace(tool, detect_timeout=max(LOOK_SECONDS, tool.detect_timeout or 0)
                           ).list_devices()
    except ToolFailure:
        return
    for job in hung:
        where = "still attached" if job.ecid in attached else "no longer attached"
        job.result = RestoreResult(Outcome.HUNG, f"{job.result.reason}, {where}")


def restore_devices(tool: Tool, display: Display, options: argparse.Namespace) -> int:
    ecids = list(dict.fromkeys(options.ecids)) or tool.list_devices()
    if not ecids:
        raise ToolFailure("no device is attached; connect one in DFU or Recovery mode, or raise"
                          " --detect-timeout")
    jobs = [Job(ecid) for ecid in ecids]
    station = Station(tool, display, options)
    station.run(jobs)
    if not station.interrupted:
        look_for_hung(tool, jobs)
    display.show_table(["ECID", "result", "seconds", "reason"],
                       [[job.ecid, job.result.outcome.value, f"{job.seconds:.0f}",
                         job.result.reason] for job in jobs])
    if station.interrupted:
        return INTERRUPTED
    return 0 if all(job.result.outcome is Outcome.SUCCEEDED for job in jobs) else 1


def main() -> int:
    options = parse_arguments(sys.argv[1:])
    tool = Tool(options.command, options.detect_timeout, options.silence_timeout)
    for stream in (sys.stdout, sys.stderr):
        if isinstance(stream, io.TextIOWrapper):
            stream.reconfigure(errors="replace")  # not every console can show all letters
    act: Callable[[Tool, Display, argparse.Namespace], int] = options.act
    try:
        return act(tool, make_display(options.plain), options)
    except ToolFailure as fault:
        print(f"station.py: {fault}", file=sys.stderr)
        return 1
    except OSError as fault:
        print(f"station.py: cannot start {options.command[0]!r}: {fault.strerror}; give the command"
              " that starts the tool after two dashes", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return INTERRUPTED


if __name__ == "__main__":
    sys.exit(main())
