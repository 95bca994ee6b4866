"""docs/bench.svg is the screen of qnrescue-bench as it is now.

With --update the picture is written anew (see scripts/update-pages)."""

import re
import signal
import sys
import unittest

from bench import ROOT, Bench, wait_until
from harness import TIME_LIMIT, ToolTest, device, report

PICTURE = ROOT / "docs" / "bench.svg"
SLOTS = 7
FAILED = report(28, 18, "Failed")
FAILED["Status"]["Error"] = {"$type": "error", "Domain": "AMRestoreErrorDomain", "Code": 28,
                             "Description": "Timeout waiting for NAND"}


def location(slot):
    return 0x14000000 + 0x100000 * slot


def in_slot(slot, number, reports):
    """A device; the lowest numbers are restored first."""
    return device(f"000{number}2D4C0A91C026", LocationID=location(slot), RestoreReports=reports,
                  SerialNumber=f"F4GSM{number}QN0D8X")


def for_good(operation, progress):
    return [report(3, 1), report(operation, progress, After=1, Repeat=3600)]


SCENARIO = {"Devices": [
    in_slot(1, 1, [report(3, 1), report(13, 60, After=0.5), report(0, 100, "Successful")]),
    in_slot(5, 2, [report(3, 1), {**FAILED, "After": 0.5}]),
    in_slot(3, 3, [report(5, 9)]),
    in_slot(2, 4, for_good(13, 48)),
    in_slot(7, 5, for_good(5, 9)),
    in_slot(6, 6, []),
]}


def without_times(svg):
    return re.sub(r"\b\d+:\d\d\b", "0:00", svg)


class Picture(ToolTest):
    def take(self):
        folder = self.new_folder()
        bench = Bench(folder, SCENARIO)
        self.addCleanup(bench.close)
        (folder / "bench" / "slots.toml").write_text("".join(
            f'[[slot]]\nname = "{slot}"\nlocation = {location(slot)}\n'
            for slot in range(1, SLOTS + 1)))
        watch = bench.start("watch", "--restore", self.make_bundle("iPhone_18.2.ipsw"), "--at-once",
                            "2", "--silence-timeout", "6", "--away", "600", "--svg",
                            folder / "screen.svg")
        self.addCleanup(watch.wait)
        self.addCleanup(watch.kill)

        def settled():
            states = sorted(job["state"] for job in bench.jobs() if job["progress"] > 1)
            return states == ["failed", "hung", "running", "running", "succeeded"]

        wait_until(settled)
        wait_until(lambda: "2 running" in self.text(folder) and "1 waiting" in self.text(folder))
        watch.send_signal(signal.SIGINT)
        self.assertEqual(130, watch.wait(TIME_LIMIT))
        return (folder / "screen.svg").read_text(encoding="utf-8")

    def text(self, folder):
        svg = (folder / "screen.svg").read_text(encoding="utf-8")
        return re.sub(r"<[^>]*>", "", svg).replace("&#160;", " ")

    def test_it_is_real(self):
        self.assertEqual(without_times(PICTURE.read_text(encoding="utf-8")),
                         without_times(self.take()))


def update():
    test = Picture()
    try:
        PICTURE.write_text(test.take(), encoding="utf-8")
    finally:
        test.doCleanups()


if __name__ == "__main__":
    if sys.argv[1:] == ["--update"]:
        update()
    else:
        unittest.main()
