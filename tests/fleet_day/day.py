"""Plays a day in a fleet: orders come twice, too late, or for devices that are not there, busy or
leaving; bridges and the broker are killed, networks cut, power is lost. After each scene the traces
of the simulator must have each restore exactly once, and the broker and the screen must show what
the journals have.

The package has to be installed in the Python that runs this. The words after the options start the
tool, with the simulator."""

from __future__ import annotations

import argparse
import os
import random
import shutil
import signal
import sys
import time
import traceback
from collections.abc import Callable, Sequence
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "python" / "tests"))

from fleet import Fleet  # noqa: E402
from machine_of_tests import work_folder  # noqa: E402
from mosquitto_of_tests import PROGRAM as BROKER  # noqa: E402
from scenes import SCENES, Scene  # noqa: E402
from stations_of_tests import Station  # noqa: E402


def play(fleet: Fleet, scenes: Sequence[Scene]) -> bool:
    """Plays the scenes, in random order, and returns whether they all pass. After one that does
    not, the others would only show the same."""
    places = [fleet.chance.choice(fleet.stations) for _ in scenes]
    devices = [fleet.plug_in(station) for station in places]
    order = fleet.chance.sample(scenes, len(scenes))
    return all(play_scene(fleet, *each) for each in zip(order, places, devices, strict=True))


def play_scene(fleet: Fleet, scene: Scene, station: Station, device: str) -> bool:
    """Plays the scene at this station, says what has become of it, and returns whether it has
    passed."""
    began = time.monotonic()
    fault = ""
    try:
        fleet.wait_for(station, device)
        scene(fleet, station, device)
        fleet.settle()
    except Exception as failure:  # whatever a program does that is broken
        text = str(failure) if isinstance(failure, AssertionError) else ""
        lines = (text or traceback.format_exc()).splitlines()
        fault = "\n".join(dict.fromkeys((*lines, *fleet.what_is_wrong())))
    print(f"{scene.__name__} at {station.name}: {time.monotonic() - began:.1f} s,"
          f" {'FAILED' if fault else 'passed'}", fault, flush=True)
    return not fault


def play_day(options: argparse.Namespace, scenes: Sequence[Scene], path: Path) -> bool:
    """Plays a day in this folder, and returns whether all scenes have passed."""
    fleet = Fleet(path, options.tool, options.stations, 4 * len(SCENES) * options.rounds,
                  random.Random(options.seed), options.rounds > 1)
    try:
        has_passed = all(play(fleet, scenes) for _ in range(options.rounds))
        restores = sum(len(each.machine.restores()) for each in fleet.stations)
    finally:
        fleet.close()
    print(f"{restores} restores")
    print(f"{options.rounds * len(scenes)} passed, 0 failed" if has_passed else "1 failed")
    return has_passed


def at_least(least: int) -> Callable[[str], int]:
    """Returns what reads a number that is not below this one."""
    def number(text: str) -> int:
        if int(text) < least:
            raise ValueError
        return int(text)
    return number


def parse_arguments() -> argparse.Namespace:
    """Returns the options."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seed", type=int, default=1, help="default: %(default)s")
    parser.add_argument("--stations", type=at_least(2), default=3,
                        help="two or more; default: %(default)s")
    parser.add_argument("--rounds", type=at_least(1), default=1, help="how often each scene is"
                        " played; default of scripts/fleet-day: 5, or 1 with --short")
    parser.add_argument("--scene", choices=[scene.__name__ for scene in SCENES], metavar="NAME",
                        help="play only this one: %(choices)s")
    parser.add_argument("--keep", type=Path, metavar="FOLDER", help="where to work, and leave it")
    parser.add_argument("tool", nargs="+")
    options = parser.parse_args()
    for program in (options.tool[0], BROKER):
        if shutil.which(program) is None:
            parser.error(f"there is no program {program}")
    options.tool = [os.path.abspath(word) if os.path.isfile(word) else word
                    for word in options.tool]  # the stations have folders of their own
    return options


def main() -> int:
    """Plays a day and returns the exit status."""
    options = parse_arguments()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    scenes = [each for each in SCENES if options.scene in (None, each.__name__)]
    print(f"seed {options.seed}: {options.stations} stations, {options.rounds} rounds", flush=True)
    with work_folder("fleet_day.", options.keep) as path:
        if not play_day(options, scenes, path):
            sys.exit(1)  # so that the folder stays
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(128 + signal.SIGINT)
