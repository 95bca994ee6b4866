"""Measures what the polling of qnrescue-bench costs, and how long it takes from plugging in a device
to the start of its restore.

    bench_polling.py [--devices N] [--seconds SECONDS]

QNRESCUE_BIN is the folder of a simulated setup, QNRESCUE_RUNNER what runs Windows programs (empty
on Windows itself).
"""

import argparse
import pathlib
import plistlib
import random
import resource
import signal
import statistics
import sys
import tempfile
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "end_to_end"))
from bench import Bench, wait_until  # noqa: E402
from harness import COMPLETE, device, report  # noqa: E402

REGISTER = "AMRestorableDeviceRegisterForNotifications"


def processor_seconds():
    """Returns the processor time of all children that have ended, and of theirs."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def measure_polling(devices, seconds):
    """Returns how many polls a watch makes in a minute, and its share of one processor."""
    scenario = {"Devices": [device(f"{number:016X}") for number in range(1, devices + 1)]}
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(folder, scenario)
        trace = pathlib.Path(folder) / "trace"
        bench.environment["MOBILEDEVICE_SIMULATOR_TRACE"] = str(trace)
        used = processor_seconds()
        watch = bench.start("watch")
        time.sleep(seconds)
        watch.send_signal(signal.SIGINT)
        watch.wait()
        used = processor_seconds() - used
        polls = trace.read_text().count(REGISTER) - devices  # each device is asked once
        bench.close()
    return polls * 60 / seconds, used / seconds


def measure_starts(devices, seconds):
    """Returns the seconds from plugging in to the start of the tool, for devices that arrive at
    random."""
    generator = random.Random(1)
    times = sorted(generator.uniform(5, seconds) for _ in range(devices))
    reports = [report(5, 9), {**COMPLETE, "After": 1}]
    scenario = {"Devices": [
        device(f"{number:016X}", ConnectAfter=at, RestoreReports=reports)
        for number, at in enumerate(times, 1)]}
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(folder, scenario)
        bundle = pathlib.Path(folder) / "update.ipsw"
        bundle.touch()
        watch = bench.start("watch", "--restore", bundle)
        wait_until(lambda: len(bench.values("history")) == devices, limit=seconds + 60)
        began = plistlib.loads((pathlib.Path(folder) / "world.plist").read_bytes())["Began"] / 1e6
        jobs = bench.values("history")
        watch.send_signal(signal.SIGINT)
        watch.wait()
        bench.close()
    return [job["started_at"] - began - times[int(job["device"], 16) - 1] for job in jobs]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--devices", type=int, default=16)
    parser.add_argument("--seconds", type=float, default=60)
    options = parser.parse_args()
    polls, share = measure_polling(options.devices, options.seconds)
    print(f"polls in a minute: {polls:.0f}")
    print(f"processor time: {share:.1%} of one processor")
    starts = measure_starts(options.devices, options.seconds)
    print(f"from plugging in to the start: median {statistics.median(starts):.1f} s,"
          f" longest {max(starts):.1f} s")


if __name__ == "__main__":
    main()
