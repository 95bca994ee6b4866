"""Plays a day in a fleet: orders come twice, too late, or for devices that are not there, busy or
leaving; bridges and the broker are killed, networks cut, power is lost. After each scene the traces
of the simulator must have each restore exactly once, and the broker and the screen must show what
the journals have.

The package has to be installed in the Python that runs this. The words after the options start the
tool, with the simulator."""

from __future__ import annotations

import argparse
import random
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "python" / "tests"))

from fleet import Fleet  # noqa: E402
from scenes import SCENES  # noqa: E402


def play(fleet: Fleet, rounds: int) -> int:
    """Plays all scenes so many times, in random order, and returns how many fail."""
    failed = 0
    for number in range(rounds * len(SCENES)):
        if number % len(SCENES) == 0:
            scenes = fleet.chance.sample(SCENES, len(SCENES))
            places = [fleet.chance.choice(fleet.stations) for _ in scenes]
            devices = [fleet.plug_in(station) for station in places]
        scene, station, device = (each[number % len(SCENES)]
                                  for each in (scenes, places, devices))
        began = time.monotonic()
        try:
            fleet.wait_for(station, device)
            scene(fleet, station, device)
            fleet.settle()
            verdict = "passed"
        except AssertionError as fault:
            failed += 1
            verdict = f"FAILED\n{fault}"
        print(f"{scene.__name__} at {station.name}: {time.monotonic() - began:.1f} s, {verdict}",
              flush=True)
        if failed:
            break  # what follows would only show the same
    return failed


def main() -> int:
    """Plays a day and returns the exit status."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--stations", type=int, default=3)
    parser.add_argument("--rounds", type=int, default=1, help="how often each scene is played")
    parser.add_argument("--keep", type=Path, metavar="FOLDER", help="where to work, and leave it")
    parser.add_argument("tool", nargs="+")
    options = parser.parse_args()
    print(f"seed {options.seed}: {options.stations} stations, {options.rounds} rounds", flush=True)
    with tempfile.TemporaryDirectory(prefix="fleet_day.", ignore_cleanup_errors=True) as folder:
        path = options.keep or Path(folder)
        path.mkdir(exist_ok=True)
        fleet = Fleet(path, options.tool, options.stations, 4 * len(SCENES) * options.rounds,
                      random.Random(options.seed), options.rounds > 1)
        try:
            failed = play(fleet, options.rounds)
            restores = sum(len(each.machine.restores()) for each in fleet.stations)
        finally:
            fleet.close()
    print(f"{restores} restores")
    print(f"{failed} failed" if failed else f"{options.rounds * len(SCENES)} passed, 0 failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
