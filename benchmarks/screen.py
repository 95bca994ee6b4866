"""screen.py [SECONDS]: measures the page of the screen in Chromium: 50 stations with 8 tiles each,
of which every one reports once a second. build/python/venv/bin/python has to run it, after
scripts/python-environment."""

import dataclasses
import json
import os
import pathlib
import random
import statistics
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "python" / "tests"))

from browser_of_tests import BackgroundScreen, Page, new_browser  # noqa: E402
from qnrescue.screen.board import Device, Station  # noqa: E402
from screen_of_tests import MadeUp, job  # noqa: E402

STATIONS, SLOTS, LIMIT = 50, 8, 50
# What is measured: a name, the end of the address, and the size of the window if it is not the usual
# one: with this one, all tiles are in view.
ALL_IN_VIEW = {"width": 3840, "height": 13000, "deviceScaleFactor": 0.25, "mobile": False}
CASES = (("the page", "", None), ("the form for a wall", "?wall", None),
         ("the page, with all tiles in view", "", ALL_IN_VIEW))
STEPS = ("Booting", "Sending ramdisk to device", "Flashing firmware", "Verifying restore")
# Also: frames whose work took longer than 50 ms, which the browser reports.
MEASURE = """
const done = arguments[1], frames = [], long = [];
new PerformanceObserver((list) => long.push(...list.getEntries().map((each) => each.duration)))
  .observe({type: "long-animation-frame"});
let last = performance.now();
const end = last + 1000 * arguments[0];
requestAnimationFrame(function frame(now) {
  frames.push(now - last);
  last = now;
  now < end ? requestAnimationFrame(frame) : done({frames, long});
});
"""


def jobs_of(number):
    now = time.time()
    for slot in range(SLOTS):
        name = f"slot {slot + 1}"
        yield job(f"job-{number}-{slot}", device=f"{number * SLOTS + slot:016X}", slot=name,
                  ordered_at=now, started_at=now, step=STEPS[0])


def report(screen, reports, stop):
    """Lets every job report once a second, at moments of its own."""
    while not stop.is_set():
        began = time.monotonic()
        for part in range(10):
            for key in list(reports)[part::10]:
                old = reports[key]
                new = dataclasses.replace(old, progress=(old.progress + 1) % 101,
                                          step=random.choice(STEPS))
                reports[key] = new
                screen.change(lambda board, key=key, new=new: board.set_job(key[0], new))
            time.sleep(max(0.0, began + (part + 1) / 10 - time.monotonic()))


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 30.0
    names = [f"station {number:02}" for number in range(STATIONS)]
    slots = tuple(f"slot {slot + 1}" for slot in range(SLOTS))
    source = MadeUp(*(Station(name, slots=slots) for name in names))
    source.devices = []
    reports = {(name, each.id): each for number, name in enumerate(names)
               for each in jobs_of(number)}
    screen = BackgroundScreen(source)
    stop = threading.Event()
    reporter = threading.Thread(target=report, args=(screen, reports, stop))
    driver = new_browser()
    driver.set_script_timeout(seconds + 60)
    try:
        for (name, _), each in reports.items():
            screen.change(lambda board, name=name, each=each: (
                board.set_job(name, each),
                board.set_device(name, Device(each.device, each.order.slot))))
        reporter.start()
        for name, query, size in CASES:
            page = Page(driver)
            if size:
                driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)
            page.open(screen.address + query)
            page.until(f"document.querySelectorAll('.tile .state:not(:empty)').length =="
                       f" {STATIONS * SLOTS}")
            load = os.getloadavg()[0]
            found = driver.execute_async_script(MEASURE, seconds)
            print(json.dumps(summary(name, load, **found)), flush=True)
    finally:
        stop.set()
        reporter.join()
        driver.quit()
        screen.stop()


def summary(what, load, frames, long):
    ordered = sorted(frames)
    return {"what": what, "load average": load, "frames": len(frames),
            "median ms": round(statistics.median(frames), 1),
            "99th percentile ms": round(ordered[int(0.99 * len(ordered))], 1),
            "longest ms": round(ordered[-1], 1),
            f"frames above {LIMIT} ms": sum(each > LIMIT for each in frames),
            f"frames with more than {LIMIT} ms of work": len(long),
            "most work ms": round(max(long, default=0.0), 1)}


if __name__ == "__main__":
    main()
