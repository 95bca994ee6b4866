"""The rows that are measured on whole runs of programs, on Windows or under Wine."""

import os
import pathlib
import plistlib
import statistics
import subprocess
import tempfile
import time
from dataclasses import dataclass

from rows import Row, compare

MIB = 1024 * 1024
ECID = "00008020001A2B3C"
BUFFER = bytearray(MIB)


@dataclass
class Extent:
    """How much is measured."""

    pairs: int
    long_pairs: int  # of runs that take seconds
    reports: int
    file_size: int


FULL = Extent(pairs=41, long_pairs=9, reports=100_000, file_size=1024 * MIB)
SMOKE = Extent(pairs=1, long_pairs=1, reports=100, file_size=MIB)


class Programs:
    """The built programs and how they are run."""

    def __init__(self, folder, runner):
        self.folder = pathlib.Path(folder).resolve()
        self._runner = [runner] if runner else []

    def command(self, program, *arguments):
        return [*self._runner, str(self.folder / program), *map(str, arguments)]

    def output(self, *command, **environment):
        return subprocess.run(
            self.command(*command),
            check=True,
            env={**os.environ, **environment},
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
        ).stdout

    def seconds(self, *command, **environment):
        """From start to exit; what the program writes to its pipe is read and dropped."""
        begin = time.perf_counter()
        with subprocess.Popen(
            self.command(*command),
            bufsize=0,
            env={**os.environ, **environment},
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
        ) as process:
            while process.stdout.readinto(BUFFER):
                pass
        if process.returncode != 0:
            raise subprocess.CalledProcessError(process.returncode, process.args)
        return time.perf_counter() - begin

    def peak_memory(self, *command, **environment):
        """In bytes. A child of Python itself would take over Python's own peak."""
        with tempfile.NamedTemporaryFile("r") as peak:
            subprocess.run(
                ["time", "--format=%M", f"--output={peak.name}", *self.command(*command)],
                check=True,
                env={**os.environ, **environment},
                stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
            )
            return int(peak.read()) * 1024


def alternate(pairs, yardstick, figure):
    """The results of both, called in turn, each as often first as the other."""
    yardstick(), figure()  # brings the files into memory
    yardsticks, figures = [], []
    for number in range(pairs):
        first_yardstick = number % 2 == 0
        if first_yardstick:
            yardsticks.append(yardstick())
        figures.append(figure())
        if not first_yardstick:
            yardsticks.append(yardstick())
    return yardsticks, figures


def extra_memory(programs, extent, what, *command, **environment):
    most_extra = 8 * MIB
    bases, peaks = alternate(
        extent.long_pairs,
        lambda: programs.peak_memory("empty_program.exe"),
        lambda: programs.peak_memory(*command, **environment),
    )
    base, peak = statistics.median(bases), statistics.median(peaks)
    return Row(
        f"peak memory of {what}",
        "the empty program",
        "B",
        base,
        peak,
        peak / base,
        None,
        "at most 8 MiB more",
        peak - base <= most_extra,
    )


def start(programs, extent, _folder):
    empty, helping = alternate(
        extent.pairs,
        lambda: programs.seconds("empty_program.exe"),
        lambda: programs.seconds("qnrescue.exe", "--help"),
    )
    yield compare(
        "--help, start to exit",
        "empty program that loads one DLL",
        "s",
        empty,
        helping,
        at_most=1.10,
    )


def listing(programs, extent, _folder):
    listing_command = ("qnrescue.exe", "--list-devices", "--detect-timeout", "0")
    bare, listings = alternate(
        extent.pairs,
        lambda: programs.seconds("bare_listing.exe"),
        lambda: programs.seconds(*listing_command),
    )
    yield compare(
        "--list-devices --detect-timeout 0",
        "program that only registers, unregisters, prints",
        "s",
        bare,
        listings,
        at_most=1.15,
    )
    yield extra_memory(programs, extent, "--list-devices", *listing_command)


def scenario(folder, report_count):
    """A file with a device that reports so often, and is restored then."""
    steps = {"Status": "Restoring", "Operation": 13, "Progress": 48}
    end = {"Status": "Successful", "Operation": 0, "Progress": 100}
    reports = [{"Repeat": report_count, "Status": steps}, {"Status": end}]
    path = folder / f"{report_count}-reports.plist"
    path.write_bytes(plistlib.dumps({"Devices": [{"ECID": ECID, "RestoreReports": reports}]}))
    return str(path)


def reports(programs, extent, folder):
    restore = ("qnrescue.exe", "--restore", "none.ipsw", "--ecid", ECID)
    document_end = b"</plist>\n"
    one_report = programs.output(*restore, MOBILEDEVICE_SIMULATOR_SCENARIO=scenario(folder, 1))
    document = folder / "document.plist"
    document.write_bytes(one_report[: one_report.index(document_end) + len(document_end)])

    many_reports = scenario(folder, extent.reports)
    alone, relayed = alternate(
        extent.long_pairs,
        lambda: programs.seconds("writer_alone.exe", document, extent.reports),
        lambda: programs.seconds(*restore, MOBILEDEVICE_SIMULATOR_SCENARIO=many_reports),
    )
    yield compare(
        f"{extent.reports:,} reports, end to end",
        "the same bytes by the writer alone",
        "/s",
        [extent.reports / seconds for seconds in alone],
        [extent.reports / seconds for seconds in relayed],
        at_least=0.5,
    )
    yield extra_memory(
        programs,
        extent,
        f"{extent.reports:,} reports",
        *restore,
        MOBILEDEVICE_SIMULATOR_SCENARIO=many_reports,
    )


def file_reading(programs, extent, folder):
    path = folder / "file"
    block = os.urandom(MIB)
    with open(path, "wb") as file:
        for _ in range(extent.file_size // MIB):
            file.write(block)

    def read(way):
        return programs.seconds("read_file.exe", path, way)

    def reading_of(way):
        return float(programs.output("read_file.exe", path, way))

    what = f"whole-file read of {extent.file_size // MIB:,} MiB"
    loop, tool = alternate(extent.long_pairs, lambda: read("loop"), lambda: read("tool"))
    yield compare(
        f"{what}, start to exit",
        "loop of the same requests into a ready buffer",
        "s",
        loop,
        tool,
        at_most=1.05,
    )
    loop, tool = alternate(
        extent.long_pairs, lambda: reading_of("loop"), lambda: reading_of("tool")
    )
    yield compare(
        f"{what}, allocating and reading",
        "the reading loop alone",
        "s",
        loop,
        tool,
        at_most=1.05,
    )


def size(programs, _extent, _folder):
    largest = 2 * MIB
    figure = (programs.folder / "libqnrescuelib.dll").stat().st_size
    yield Row(
        "size of libqnrescuelib.dll, stripped",
        "-",
        "B",
        None,
        figure,
        None,
        None,
        "at most 2 MiB",
        figure <= largest,
    )


def rows(programs, extent):
    with tempfile.TemporaryDirectory() as folder:
        for measurement in (start, listing, reports, file_reading, size):
            yield from measurement(programs, extent, pathlib.Path(folder))
