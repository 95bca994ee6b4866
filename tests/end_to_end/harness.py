"""Runs the built programs and reads back what leaves them.

QNRESCUE_BIN is the folder of qnrescue.exe and its DLLs, QNRESCUE_RUNNER what runs Windows programs
(empty on Windows itself).
"""

import os
import pathlib
import plistlib
import signal
import subprocess
import tempfile
import time
import unittest
import zipfile
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass

BIN = pathlib.Path(os.environ["QNRESCUE_BIN"])
RUNNER = [os.environ["QNRESCUE_RUNNER"]] if os.environ.get("QNRESCUE_RUNNER") else []

# Programs in the background of a shell ignore Control-C, and so do those that they start.
signal.signal(signal.SIGINT, signal.default_int_handler)

# Wine reads arguments in the locale's encoding.
LOCALE = {"LC_ALL": "C.UTF-8"} if RUNNER else {}

# Far above what any run here needs: a run that takes longer hangs.
TIME_LIMIT = 60
# How long a run is watched that must go on waiting.
WATCH_SECONDS = 3
# How many tests of a module run at once: most of them wait for a run that waits itself.
TESTS_AT_ONCE = 4

DOCUMENT_START = (
    b'<?xml version="1.0" encoding="UTF-8"?>\n'
    b'<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN"'
    b' "http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n'
    b'<plist version="1.0">\n'
)
DOCUMENT_END = b"</plist>\n"

ECID = "00008020001A2B3C"

DESCRIPTIONS = {
    0: "No error",
    1: "Unknown error",
    2: "Invalid argument",
    3: "Bad command",
    4: "Bad ECID specified",
    5: "Device is in bad state",
    6: "Recovery mode command failed",
    7: "Restore did not complete before timeout expired",
    8: "Read error",
}

# The calls with which every run begins, and those around a command.
WARM_UP = (
    "AMDeviceNotificationSubscribe minimumInterfaceSpeed=0 connectionType=1 context=null -> 0",
    "AMDeviceNotificationUnsubscribe -> 0",
)
REGISTER = "AMRestorableDeviceRegisterForNotifications context=set -> 1"
UNREGISTER = "AMRestorableDeviceUnregisterForNotifications clientID=1 -> 0"


def arrival(ecid=ECID):
    """Returns the calls that a recovery device's arrival leads to."""
    return (f"AMRestorableDeviceGetState device={ecid} -> 2",
            f"AMRestorableDeviceGetECID device={ecid} -> {ecid}")


class SideBySide(unittest.TestSuite):
    """Runs several tests at once. Those of a class with ONE_BY_ONE run one after the other."""

    def run(self, result, debug=False):
        groups = {}
        for test in single_tests(self):
            key = type(test) if getattr(test, "ONE_BY_ONE", False) else id(test)
            groups.setdefault(key, unittest.TestSuite()).addTest(test)
        with ThreadPoolExecutor(TESTS_AT_ONCE) as pool:
            for part in pool.map(outcome, groups.values()):
                result.testsRun += part.testsRun
                for kind in ("failures", "errors", "skipped", "expectedFailures",
                             "unexpectedSuccesses"):
                    getattr(result, kind).extend(getattr(part, kind))
        return result


def single_tests(suite):
    """Yields the tests of a suite and of the suites in it."""
    for each in suite:
        if isinstance(each, unittest.TestSuite):
            yield from single_tests(each)
        else:
            yield each


def outcome(suite):
    """Returns the result of running the suite."""
    result = unittest.TestResult()
    suite.run(result)
    return result


def side_by_side(_loader, tests, _pattern):
    """To be a module's load_tests: runs the module's tests side by side."""
    return SideBySide([tests])


class OutputFault(AssertionError):
    """What a program wrote is invalid."""


@dataclass
class Document:
    type: str
    value: object
    text: bytes  # without the line feed that follows


def parse_document(text):
    """Returns the document in this text, which holds nothing else."""
    root = plistlib.loads(text, fmt=plistlib.FMT_XML)
    if not isinstance(root, dict) or set(root) != {"Type", "Value"}:
        raise OutputFault(f"not a dictionary of Type and Value: {root!r}")
    if not isinstance(root["Type"], str):
        raise OutputFault(f"Type is no string: {root!r}")
    return Document(root["Type"], root["Value"], text)


def take_document(output):
    """Returns the first document of the output, None while it is not complete, and what follows."""
    if b"\r" in output:
        raise OutputFault(f"carriage return in {output!r}")
    if not output.startswith(DOCUMENT_START[: len(output)]):
        raise OutputFault(f"no document starts here: {output[:200]!r}")
    end = output.find(DOCUMENT_END)
    if end < 0 or len(output) == end + len(DOCUMENT_END):
        return None, output
    end += len(DOCUMENT_END)
    if output[end : end + 1] != b"\n":
        raise OutputFault(f"no line feed after a document: {output[end:][:200]!r}")
    return parse_document(output[:end]), output[end + 1 :]


def split_documents(output):
    """Returns all documents; every byte of the output is in one or is the line feed after it."""
    documents = []
    while output:
        document, output = take_document(output)
        if document is None:
            raise OutputFault(f"the output breaks off: {output!r}")
        documents.append(document)
    return documents


def split_lines(text):
    if b"\r" in text:
        raise OutputFault(f"carriage return in {text!r}")
    if text and not text.endswith(b"\n"):
        raise OutputFault(f"the last line is not ended: {text!r}")
    return text.decode("utf-8").split("\n")[:-1]


def device(ecid=ECID, **properties):
    return {"ECID": ecid, **properties}


def report(operation=0, progress=0, status="Restoring", **more):
    return {"Status": {"Status": status, "Operation": operation, "Progress": progress}, **more}


COMPLETE = report(0, 100, "Successful")


@dataclass
class Run:
    """A run that has ended."""

    status: int
    stdout: bytes
    stderr: bytes
    seconds: float
    trace: list  # lines
    options: object  # those given to the restore, or None

    @property
    def documents(self):
        return split_documents(self.stdout)

    @property
    def stderr_lines(self):
        return split_lines(self.stderr)

    @property
    def calls(self):
        """Returns the traced calls, without the last line."""
        return self.trace[:-1]

    @property
    def call_names(self):
        return [line.split(" ")[0] for line in self.calls]

    def values(self, document_type):
        return [each.value for each in self.documents if each.type == document_type]


class Process:
    """A run under way. Its streams go to files: a pipe would stay open as long as a service that
    the first Windows process started."""

    def __init__(self, command, folder, environment, runner=RUNNER):
        self._folder = folder
        self._read = 0
        with open(self._path("stdout"), "wb") as out, open(self._path("stderr"), "wb") as err:
            self.started = time.monotonic()
            self._process = subprocess.Popen(
                [*runner, *(str(part) for part in command)],
                stdin=subprocess.DEVNULL,
                stdout=out,
                stderr=err,
                env={**os.environ, **LOCALE, **environment},
                cwd=folder,
            )

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()

    def _path(self, name):
        return os.path.join(self._folder, name)

    def content(self, name):
        """Returns what the file of the run holds by now; None where the file is missing."""
        try:
            with open(self._path(name), "rb") as file:
                return file.read()
        except FileNotFoundError:
            return None

    @property
    def id(self):
        return self._process.pid

    def running(self):
        return self._process.poll() is None

    def kill(self):
        self._process.kill()
        self._process.wait()

    def wait_for_text(self, name, text, limit=TIME_LIMIT):
        """Waits until this file of the run holds the text."""
        end = time.monotonic() + limit
        while text.encode() not in (self.content(name) or b""):
            if not self.running() or time.monotonic() > end:
                raise OutputFault(f"no {text!r} in {name}: {self.content(name)!r}")
            time.sleep(0.02)

    def next_document(self, limit=TIME_LIMIT):
        """Waits for the document after the one that was read last; returns it."""
        end = time.monotonic() + limit
        while time.monotonic() < end:
            ended = not self.running()
            document, _ = take_document(self.content("stdout")[self._read :])
            if document:
                self._read += len(document.text) + 1
                return document
            if ended:
                break
            time.sleep(0.02)
        raise OutputFault(f"no further document; standard error: {self.content('stderr')!r}")

    def wait(self, limit=TIME_LIMIT):
        try:
            status = self._process.wait(limit)
        except subprocess.TimeoutExpired:
            self.kill()
            raise OutputFault(
                f"still running after {limit} s; standard output: {self.content('stdout')!r},"
                f" standard error: {self.content('stderr')!r}"
            ) from None
        seconds = time.monotonic() - self.started
        trace = self.content("trace")
        options = self.content("trace.options.plist")
        return Run(
            status=status,
            stdout=self.content("stdout"),
            stderr=self.content("stderr"),
            seconds=seconds,
            trace=split_lines(trace) if trace else [],
            options=plistlib.loads(options) if options else None,
        )


class ToolTest(unittest.TestCase):
    """Tests that run the tool against scripted devices."""

    maxDiff = None

    def new_folder(self):
        folder = tempfile.TemporaryDirectory(prefix="end_to_end.")
        self.addCleanup(folder.cleanup)
        return pathlib.Path(folder.name)

    def start(self, *arguments, scenario=None, program=("qnrescue.exe",), environment=(),
              runner=RUNNER):
        """Starts a run; without a scenario it has the simulator's own devices. The scenario is a
        dictionary, or the path of a file."""
        folder = self.new_folder()
        environment = {"MOBILEDEVICE_SIMULATOR_TRACE": str(folder / "trace"), **dict(environment)}
        if isinstance(scenario, dict):
            path = folder / "scenario.plist"
            path.write_bytes(plistlib.dumps(scenario))
            environment["MOBILEDEVICE_SIMULATOR_SCENARIO"] = str(path)
        elif scenario is not None:
            environment["MOBILEDEVICE_SIMULATOR_SCENARIO"] = str(scenario)
        command = [BIN / program[0], *program[1:], *arguments]
        process = Process(command, folder, environment, runner)
        self.addCleanup(process.kill)
        return process

    def run_tool(self, *arguments, limit=TIME_LIMIT, **how):
        """Runs the tool to its orderly end, with the status `status` if it is given."""
        expected = how.pop("status", None)
        return self.finish(self.start(*arguments, **how), limit, expected, arguments)

    def finish(self, process, limit=TIME_LIMIT, status=None, arguments=()):
        """Waits for the orderly end and returns the run: nothing leaks, documents are whole, and
        standard error is silent unless the arguments ask for it."""
        run = process.wait(limit)
        shown = f"{arguments}: status {run.status}, {run.stdout!r}, {run.stderr!r}"
        self.assertEqual("live-objects 0", run.trace[-1] if run.trace else None, shown)
        self.assertEqual(1, sum(line.startswith("live-objects") for line in run.trace), shown)
        run.documents  # raises where the output is not made of whole documents
        if not {"--debug", "--debug-dump", "--help"} & set(arguments):
            self.assertEqual(b"", run.stderr, shown)
        if status is not None:
            self.assertEqual(status, run.status, shown)
        return run

    def restore(self, reports, *arguments, status=0, time_scale=0, **how):
        """Restores a device that makes these reports (None: the simulator's own steps)."""
        properties = {} if reports is None else {"RestoreReports": reports}
        scenario = {"Devices": [device(**properties)], "TimeScale": time_scale}
        if "--restore" not in arguments:
            arguments = ("--restore", "x.ipsw", *arguments)
        return self.run_tool(*arguments, "--ecid", ECID, scenario=scenario, status=status, **how)

    def assert_error(self, document, code, reason):
        """Checks that the document is a tool error; the reason is its exact text."""
        self.assertEqual("InternalError", document.type)
        self.assertEqual(
            {
                "Domain": "qnrescue",
                "Code": code,
                "Description": DESCRIPTIONS[code],
                "FailureReason": reason,
            },
            document.value,
        )

    def assert_fails(self, code, reason, *arguments, **how):
        """Checks that the run prints this one tool error alone, and ends with its code."""
        run = self.run_tool(*arguments, **how)
        self.assertEqual(code, run.status, run.stdout)
        self.assertEqual(1, len(run.documents), run.stdout)
        self.assert_error(run.documents[0], code, reason)
        return run

    def assert_lines(self, patterns, lines):
        """Checks that each line matches the pattern at its place, whole."""
        self.assertEqual(len(patterns), len(lines), lines)
        for pattern, line in zip(patterns, lines):
            self.assertRegex(line, rf"\A(?:{pattern})\Z", lines)

    def assert_goes_on_waiting(self, processes, call):
        """Checks that after this call no process ends or prints anything while it is watched."""
        for process in processes:
            process.wait_for_text("trace", f"{call} ")
        time.sleep(WATCH_SECONDS)
        for process in processes:
            self.assertTrue(process.running(), process.content("stdout"))
            self.assertEqual(b"", process.content("stdout"))
            process.kill()

    def make_bundle(self, name="restore bundle.ipsw"):
        """Makes a ZIP archive that the default restore accepts; returns its path."""
        path = self.new_folder() / name
        with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
            archive.writestr("BuildManifest.plist", plistlib.dumps({"ProductVersion": "16.0"}))
            archive.writestr("Firmware/all_flash/DeviceTree.im4p", bytes(1000))
        return path
