"""The rows that are measured on whole runs of programs, on Windows or under Wine."""

import os
import pathlib
import plistlib
import statistics
import subprocess
import tempfile
import time
from dataclasses import dataclass

from rows import Nonsense, Row, compare, extra

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


FULL = Extent(pairs=42, long_pairs=9, reports=100_000, file_size=1024 * MIB)
SMOKE = Extent(pairs=1, long_pairs=1, reports=100, file_size=MIB)


class Programs:
    """The built programs and how they are run."""

    def __init__(self, folder, runner):
        self.folder = pathlib.Path(folder).resolve()
        self._runner = [runner] if runner else []

    def command(self, program, *arguments):
        return [*self._runner, str(self.folder / program), *map(str, arguments)]

    def output(self, *command, stream="stdout", **environment):
        """What the program writes to that stream. Never nothing."""
        streams = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        streams[stream] = subprocess.PIPE
        ended = subprocess.run(
            self.command(*command), check=True, env={**os.environ, **environment}, **streams
        )
        written = getattr(ended, stream)
        if not written:
            raise Nonsense(f"{' '.join(map(str, command))} writes nothing to {stream}")
        return written

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


class Session:
    """One run of the measurements."""

    def __init__(self, programs, extent, folder, progress):
        self.programs = programs
        self.extent = extent
        self.folder = folder
        self.progress = progress

    def in_turn(self, times, *subjects):
        """The results of all subjects, called in turn, each as often first as the others."""
        for subject in subjects:  # brings the files into memory
            subject()
        results = [[] for _ in subjects]
        for number in range(times):
            self.progress.step(number + 1, times)
            for place in range(len(subjects)):
                index = (number + place) % len(subjects)
                results[index].append(subjects[index]())
        return results

    def seconds(self, times, *commands, **environment):
        """The seconds of so many runs of each command, from start to exit."""
        return self.in_turn(times, *self._each(self.programs.seconds, commands, environment))

    def peak_memory(self, *commands, **environment):
        """The bytes of some runs of each command."""
        subjects = self._each(self.programs.peak_memory, commands, environment)
        return self.in_turn(self.extent.long_pairs, *subjects)

    @staticmethod
    def _each(measure, commands, environment):
        return [lambda command=command: measure(*command, **environment) for command in commands]


EMPTY = ("empty_program.exe",)


def require(expected, what):
    if not expected:
        raise Nonsense(what)


def start(session):
    session.progress.begin("--help, start to exit")
    usage = session.programs.output("qnrescue.exe", "--help", stream="stderr")
    require(b"--list-devices" in usage, "--help does not name --list-devices")
    baseline, tool, empty = session.seconds(
        session.extent.pairs, ("baseline_start.exe",), ("qnrescue.exe", "--help"), EMPTY
    )
    yield compare(
        "--help, start to exit",
        "program with the same DLLs and two threads",
        "s",
        baseline,
        tool,
        at_most=1.10,
        beside=("an empty program with one DLL", empty),
    )


def list_type(document):
    return plistlib.loads(document)["Type"]


def listing(session):
    tool_command = ("qnrescue.exe", "--list-devices", "--detect-timeout", "0")
    commands = (("baseline_listing.exe",), tool_command)
    session.progress.begin("--list-devices, start to exit")
    for command in (*commands, ("bare_listing.exe",)):
        document = session.programs.output(*command)
        require(list_type(document) == "DeviceList", f"{command[0]} writes no list of devices")
    baseline, tool, bare = session.seconds(
        session.extent.pairs, *commands, ("bare_listing.exe",)
    )
    yield compare(
        "--list-devices --detect-timeout 0",
        "the same, six digits drawn, the same platform calls",
        "s",
        baseline,
        tool,
        at_most=1.10,
        beside=("a program that registers, unregisters, prints", bare),
    )
    session.progress.begin("peak memory of --list-devices")
    baseline, tool, empty = session.peak_memory(*commands, EMPTY)
    yield extra(
        "peak memory of --list-devices",
        "the same program",
        baseline,
        tool,
        8 * MIB,
        beside=("the empty program", empty),
    )


def scenario(folder, report_count):
    """A file with a device that reports so often, and is restored then."""
    steps = {"Status": "Restoring", "Operation": 13, "Progress": 48}
    end = {"Status": "Successful", "Operation": 0, "Progress": 100}
    reports = [{"Repeat": report_count, "Status": steps}, {"Status": end}]
    path = folder / f"{report_count}-reports.plist"
    path.write_bytes(plistlib.dumps({"Devices": [{"ECID": ECID, "RestoreReports": reports}]}))
    return str(path)


def reports(session):
    count = session.extent.reports
    commands = (("baseline_reports.exe",), ("qnrescue.exe", "--restore", "none.ipsw", "--ecid", ECID))
    environment = {"MOBILEDEVICE_SIMULATOR_SCENARIO": scenario(session.folder, count)}
    session.progress.begin(f"{count:,} reports, end to end")
    expected, documents = (session.programs.output(*each, **environment) for each in commands)
    require(documents.count(b"</plist>") == count + 1, "the tool does not write every report")
    require(documents == expected, "the tool and the baseline write different reports")

    document_end = b"</plist>\n"
    document = session.folder / "document.plist"
    document.write_bytes(documents[: documents.index(document_end) + len(document_end)])
    baseline, tool, alone = session.seconds(
        session.extent.long_pairs, *commands, ("writer_alone.exe", document, count), **environment
    )
    yield compare(
        f"{count:,} reports, end to end",
        "producer of the same lines, with the same platform calls",
        "s",
        baseline,
        tool,
        at_most=1.15,
        beside=("the writer alone", alone),
    )
    session.progress.begin(f"peak memory of {count:,} reports")
    baseline, tool, empty = session.peak_memory(*commands, EMPTY, **environment)
    yield extra(
        f"peak memory of {count:,} reports",
        "the same producer",
        baseline,
        tool,
        8 * MIB,
        beside=("the empty program", empty),
    )


def file_reading(session):
    times, size = session.extent.long_pairs, session.extent.file_size
    path = session.folder / "file"
    block = os.urandom(MIB)
    with open(path, "wb") as file:
        for _ in range(size // MIB):
            file.write(block)

    def reading_of(way):
        seconds, read = session.programs.output("read_file.exe", path, way).split()
        require(int(read) == size, f"the {way} reads {int(read)} bytes of {size}")
        return float(seconds)

    what = f"whole-file read of {size // MIB:,} MiB"
    session.progress.begin(f"{what}, start to exit")
    loop, tool = session.seconds(
        times, ("read_file.exe", path, "loop"), ("read_file.exe", path, "tool")
    )
    yield compare(
        f"{what}, start to exit",
        "loop of the same requests into a ready buffer",
        "s",
        loop,
        tool,
        at_most=1.05,
    )
    session.progress.begin(f"{what}, allocating and reading")
    loop, tool = session.in_turn(times, lambda: reading_of("loop"), lambda: reading_of("tool"))
    yield compare(
        f"{what}, allocating and reading",
        "the reading loop alone",
        "s",
        loop,
        tool,
        at_most=1.05,
    )


def library_size(session):
    largest = 2 * MIB
    session.progress.begin("size of libqnrescuelib.dll")
    figure = (session.programs.folder / "libqnrescuelib.dll").stat().st_size
    require(figure > 0, "libqnrescuelib.dll is empty")
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


ROWS = 8


def rows(programs, extent, progress):
    with tempfile.TemporaryDirectory() as folder:
        session = Session(programs, extent, pathlib.Path(folder), progress)
        for measurement in (start, listing, reports, file_reading, library_size):
            yield from measurement(session)
