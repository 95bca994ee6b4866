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
from collections.abc import Sequence
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "python" / "tests"))

from fleet import Fleet  # noqa: E402
from scenes import SCENES, Scene  # noqa: E402
from stations_of_tests import Station  # noqa: E402


def play(fleet: Fleet, scenes: Sequence[Scene]) -> bool:
    """Plays the scenes, in random order, and returns whether they all pass. After one that does
    not, the others would only show the same."""
    places = [fleet.chance.choice(fleet.stations) for _ in scenes]
    devices = [fleet.plug_in(station) for station in places]
    order = fleet.chance.sample(scenes, len(scenes))
    return all(play_scene(fleet, *each) for each in zip(order, places, devices))


def play_scene(fleet: Fleet, scene: Scene, station: Station, device: str) -> bool:
    """Plays the scene at this station, says what has become of it, and returns whether it has
    passed."""
    began = time.monotonic()
    fault = ""
    try:
        fleet.wait_for(station, device)
        scene(fleet, station, device)
        fleet.settle()
    except AssertionError as failure:
        fault = str(failure)
    print(f"{scene.__name__} at {station.name}: {time.monotonic() - began:.1f} s,"
          f" {'FAILED' if fault else 'passed'}", fault, flush=True)
    return not fault


def main() -> int:
    """Plays a day and returns the exit status."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--stations", type=int, default=3)
    parser.add_argument("--rounds", type=int, default=1, help="how often each scene is played")
    parser.add_argument("--scene", choices=[scene.__name__ for scene in SCENES],
                        help="play only this one")
    parser.add_argument("--keep", type=Path, metavar="FOLDER", help="where to work, and leave it")
    parser.add_argument("tool", nargs="+")
    options = parser.parse_args()
    scenes = [each for each in SCENES if options.scene in (None, each.__name__)]
    print(f"seed {options.seed}: {options.stations} stations, {options.rounds} rounds", flush=True)
    with tempfile.TemporaryDirectory(prefix="fleet_day.", ignore_cleanup_errors=True) as folder:
        path = options.keep or Path(folder)
        path.mkdir(exist_ok=True)
        fleet = Fleet(path, options.tool, options.stations, 4 * len(SCENES) * options.rounds,
                      random.Random(options.seed), options.rounds > 1)
        try:
            has_passed = all(play(fleet, scenes) for _ in range(options.rounds))
            restores = sum(len(each.machine.restores()) for each in fleet.stations)
        finally:
            fleet.close()
    print(f"{restores} restores")
    print(f"{options.rounds * len(scenes)} passed, 0 failed" if has_passed else "1 failed")
    return 0 if has_passed else 1


if __name__ == "__main__":
    sys.exit(main())
