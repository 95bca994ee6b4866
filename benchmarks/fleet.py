"""Measures a fleet on this machine: stations with simulated devices, all of which are restored at
the same time, one Mosquitto, and the screen. Fails unless every device is restored exactly once,
and the journals, the traces, the broker and the screen agree at the end, and again after an end of
the broker.

    build/python/venv/bin/python -B benchmarks/fleet.py build/benchmark/bin/qnrescue

The package has to be installed in the Python that runs this. The words after the options start the
tool, with the simulator."""

import argparse
import collections
import json
import os
import pathlib
import shutil
import signal
import statistics
import sys
import time

import machine
import report
from measured_fleet import BROKER, Fleet, kept_by, wait_until, work_folder
from report_times import ReportTimes, delays
from usage import Usage, memory

PAGE_BEGIN = "<!-- what `benchmarks/fleet.py --update-page` has measured -->\n"
# How often the broker says what it has counted, in seconds.
COUNTS_SECONDS = 1.0


BEGAN = time.monotonic()


def say(text):
    print(f"{time.monotonic() - BEGAN:5.0f} s: {text}", file=sys.stderr, flush=True)


class Measurement:
    """The phases of a run, one after the other."""

    def __init__(self, fleet, idle):
        self.fleet = fleet
        self.idle = idle

    def use(self):
        time.sleep(1.5 * COUNTS_SECONDS)
        return Usage(self.fleet.processes(), self.fleet.broker.counts())

    def run(self):
        before = self.use()
        time.sleep(self.idle)
        idle = self.use().since(before)
        say("orders")
        before = self.use()
        times = ReportTimes(self.fleet.documents())
        try:
            self.fleet.order()
            wait_until("all restores end", self.fleet.has_restored)
            say("end")
        finally:
            times.close()
        restores = self.use().since(before)
        used = memory(self.fleet.processes())
        say("checks")
        settle(self.fleet.faults)
        kept = self.kept()
        late = delays(times.found, self.fleet.shown)
        say("end of the broker")
        return {"idle": idle, "restores": restores, "return": self.end_broker(), "memory": used,
                "kept": kept, "delays": summary(late)}

    def kept(self):
        """How many messages the broker keeps, and their bytes with the topics, by kind."""
        found = collections.defaultdict(list)
        for topic, payload in kept_by(self.fleet.broker.port).items():
            found[topic.split("/")[2]].append(len(topic) + len(payload))
        return {kind: {"messages": len(sizes), "bytes": sum(sizes)}
                for kind, sizes in found.items()}

    def end_broker(self):
        began = time.monotonic()
        self.fleet.broker.restart()
        stations = len(self.fleet.stations)
        wait_until("all are back", lambda: self.fleet.broker.online() == stations)
        seconds = time.monotonic() - began
        settle(self.fleet.faults_of_others)
        after = self.use()
        return {"seconds": seconds, "processor seconds": after.own["broker"],
                "messages": after.counts["messages to the broker"]}


def settle(faults):
    """Waits until there are no faults; says what they are if they stay."""
    limit = time.monotonic() + 60
    while found := faults():
        if time.monotonic() > limit:
            raise AssertionError("\n".join(found[:20]))
        time.sleep(0.5)


def summary(late):
    return {"reports": len(late), "median": statistics.median(late),
            "99th percentile": late[int(0.99 * len(late))], "longest": late[-1]}


def table(options, found):
    """The figures in Markdown."""
    idle, restores = found["idle"], found["restores"]

    def share(name):
        return [f"{each['processors'][name]:.3f}" for each in (idle, restores)]

    def rate(name):
        return [f"{each['rates'][name]:,.0f}" for each in (idle, restores)]

    def of_one(name):
        return [f"{1000 * each['processors'][name] / options.stations:.1f}"
                for each in (idle, restores)]

    lines = [("what", "idle", f"{options.stations * options.devices} restores"),
             ("seconds", *(f"{each['seconds']:.0f}" for each in (idle, restores))),
             ("messages a second to the broker", *rate("messages to the broker")),
             ("messages a second from the broker", *rate("messages from the broker")),
             ("bytes a second to the broker, with topics", *rate("bytes to the broker")),
             ("processors busy: broker", *share("broker")),
             ("processors busy: bridges", *share("bridges")),
             ("processors busy: supervisors", *share("supervisors")),
             ("processors busy: screen", *share("screen")),
             ("processors busy: tools that list devices", *share("tools of bridges")),
             ("processors busy: tools that restore, with the simulator",
              *share("tools of supervisors")),
             ("a bridge, in thousandths of a processor", *of_one("bridges")),
             ("a supervisor, in thousandths of a processor", *of_one("supervisors"))]
    lines.insert(1, ("---",) * 3)
    rows = "\n".join("| " + " | ".join(line) + " |" for line in lines)
    return f"{rows}\n\n{sentences(found)}\n"


def sentences(found):
    late, back = found["delays"], found["return"]
    kept = ", ".join(f"{each['messages']} of {kind} with {each['bytes']:,} bytes"
                     for kind, each in sorted(found["kept"].items()))
    sizes = ", ".join(f"{name.removesuffix('s')} {size / 1024 / 1024:.1f} MiB"
                      for name, size in found["memory"].items())
    return report.fill(
        f"From a report in the job's file to the screen's event: median {late['median']:.2f} s,"
        f" 99th percentile {late['99th percentile']:.2f} s, longest {late['longest']:.2f} s, of"
        f" {late['reports']:,} reports. Memory of one process: {sizes}. The broker keeps {kept}."
        f" After an end of the broker, which had kept nothing, all stations were online again"
        f" within {back['seconds']:.1f} s, and had sent {back['messages']:,} messages when all was"
        f" true again; they cost the broker {back['processor seconds']:.2f} s of a processor.")


def parse_arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--stations", type=int, default=50)
    parser.add_argument("--devices", type=int, default=8, help="at each station")
    parser.add_argument("--reports", type=int, default=20, help="of each restore, 3 s apart")
    parser.add_argument("--idle", type=float, default=20, metavar="SECONDS")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--keep", type=pathlib.Path, metavar="FOLDER",
                        help="where to work, and leave it")
    parser.add_argument("--output", type=pathlib.Path, metavar="FILE", help="for JSON")
    parser.add_argument("--update-page", type=pathlib.Path, metavar="PAGE",
                        help="put the figures into this page too")
    parser.add_argument("tool", nargs="+")
    options = parser.parse_args()
    for program in (options.tool[0], BROKER):
        if shutil.which(program) is None:
            parser.error(f"there is no program {program}")
    options.tool = [os.path.abspath(word) if os.path.isfile(word) else word
                    for word in options.tool]
    return options


def main():
    options = parse_arguments()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    where = machine.description()
    with work_folder("fleet.", options.keep) as path:
        fleet = Fleet(path, options)
        try:
            say("start")
            fleet.start()
            found = Measurement(fleet, options.idle).run()
        except AssertionError as fault:
            sys.exit(f"fleet: {fault}")
        finally:
            fleet.close()
    if options.output:
        options.output.write_text(json.dumps({"machine": where, **found}, indent=2) + "\n")
    text = f"{report.fill(where)}\n\n{table(options, found)}"
    if options.update_page:
        report.put_into_page(options.update_page, PAGE_BEGIN, text)
    print(text)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit(128 + signal.SIGINT)
