"""The rows that are measured inside one process, by Google Benchmark."""

import collections
import json
import re
import statistics
import subprocess
import tempfile

from rows import Nonsense, added, compare

SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}

# What Apple's library was seen to do with a dictionary of 20 entries, on a machine of two x86-64
# cores that is not at hand. The limit goes up and down with machine_speed, which takes the time below
# on such a machine.
OBSERVED_WRITTEN = 45_000  # documents a second
OBSERVED_READ = 70_000
OBSERVED_MACHINE_SPEED = 2.9e-6  # seconds


class Samples:
    """What every repetition of every benchmark took, in the order of the repetitions."""

    def __init__(self):
        self._runs = collections.defaultdict(list)

    def add(self, runs):
        for run in runs:
            if run.get("error_occurred"):
                raise Nonsense(f"{run['name']}: {run['error_message']}")
            name = re.sub(r"/(iterations:\d+|manual_time)", "", run["run_name"])
            self._runs[name].append(run)

    def counter(self, name, counter):
        return [run[counter] for run in self._runs[name]]

    def seconds(self, name):
        return [run["real_time"] * SECONDS[run["time_unit"]] for run in self._runs[name]]

    def rates(self, name):
        return [1 / seconds for seconds in self.seconds(name)]

    def sizes(self, family):
        """The arguments of a benchmark, ascending."""
        names = (name.split("/") for name in self._runs)
        return sorted(int(name[1]) for name in names if name[0] == family)


ROWS = 14


def run_once(program, shortest):
    """All benchmarks in turn, in a random order."""
    with tempfile.NamedTemporaryFile(suffix=".json") as results:
        ended = subprocess.run(
            [
                program,
                f"--benchmark_out={results.name}",
                "--benchmark_out_format=json",
                f"--benchmark_min_time={shortest}",
                "--benchmark_enable_random_interleaving=true",
            ],
            check=False,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            text=True,
        )
        if ended.returncode != 0:
            raise Nonsense(f"{program} ends with {ended.returncode}: {ended.stderr}")
        try:
            return json.load(results)["benchmarks"]
        except ValueError as error:
            raise Nonsense(f"{program} leaves no results: {error}") from error


def run(program, smoke, progress):
    repetitions, shortest = (1, 0.001) if smoke else (15, 0.2)
    progress.begin("relay, documents, arrival, device table, recording", ROWS)
    samples = Samples()
    for repetition in range(1, repetitions + 1):
        progress.step(repetition, repetitions)
        samples.add(run_once(program, shortest))
    return samples


def relay(samples):
    tool = samples.seconds("relay/tool")
    yield compare(
        "relay of one progress report",
        "the same platform calls, queue and writer",
        "s",
        samples.seconds("relay/baseline"),
        tool,
        at_most=1.15,
        beside=("one copy, one serialisation, one write", samples.seconds("relay/least")),
    )


def property_lists(samples):
    speed = OBSERVED_MACHINE_SPEED / statistics.median(samples.seconds("machine_speed"))
    for verb, done, observed in (
        ("write", "written", OBSERVED_WRITTEN),
        ("read", "read", OBSERVED_READ),
    ):
        figures = samples.rates(f"{verb}/simulator")
        yield compare(
            f"XML documents {done}",
            "libplist, the same values",
            "/s",
            samples.rates(f"{verb}/libplist"),
            figures,
            at_least=1,
        )
        yield compare(
            f"XML documents {done}",
            f"observed library, at machine speed {speed:.2f}",
            "/s",
            [observed * speed] * len(figures),
            figures,
            at_least=1,
        )


def arrival(samples):
    for counter, name in (("median", "median"), ("p99", "99th percentile")):
        yield compare(
            f"arrival of a device to its waiter, {name}",
            "the same platform calls, lock and wake-ups, a debug line before",
            "s",
            samples.counter("arrival/baseline", counter),
            samples.counter("arrival/tool", counter),
            at_most=1.15,
            beside=("a bare condition variable", samples.counter("arrival/bare", counter)),
        )


def device_table(samples):
    for family, what in (("notification", "one notification"), ("look_up", "one look-up")):
        fewest, *others = samples.sizes(family)
        for size in others:
            yield compare(
                f"{what}, {size:,} devices",
                f"{fewest} devices",
                "s",
                samples.seconds(f"{family}/{fewest}"),
                samples.seconds(f"{family}/{size}"),
                at_most=1.3,
            )


def recording(samples):
    for family, how, what in (
        ("call", "recorded", "call, recorded"),
        ("report", "recorded", "progress report, recorded"),
        ("report", "recorded_late", "progress report, recorded after 30,000"),
    ):
        yield added(
            f"one {what}",
            "the same, not recorded",
            samples.seconds(f"{family}/plain"),
            samples.seconds(f"{family}/{how}"),
            at_most=5e-6,
        )


def rows(samples):
    for measurement in (relay, property_lists, arrival, device_table, recording):
        yield from measurement(samples)


def listing(samples):
    """Pairs of a number of devices and the median time to list them, in seconds."""
    return [
        (size, statistics.median(samples.seconds(f"list/{size}")))
        for size in samples.sizes("list")
    ]
