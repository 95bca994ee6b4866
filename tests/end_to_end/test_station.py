"""The restore station of the examples, on benches of scripted devices."""

import os
import pathlib
import plistlib
import re
import select
import signal
import subprocess
import sys
import unittest

from harness import (BIN, COMPLETE, ECID, LOCALE, RUNNER, TIME_LIMIT, ToolTest, device, report,
                     side_by_side)

try:
    import pty
    import rich
except ImportError:
    pty = rich = None

load_tests = side_by_side

ROOT = pathlib.Path(__file__).resolve().parents[2]
STATION = ROOT / "examples" / "python" / "station.py"
BENCH = ROOT / "simulator" / "scenarios" / "station.plist"

ALL_STEPS = [
    "Connecting to device", "Connected to device", "Unzipping IPSW",
    "Personalizing restore bundle", "Sending ramdisk to device", "Sending device tree to device",
    "Sending kernel cache to device", "Booting", "Waiting for NAND", "Creating partition map",
    "Creating filesystem", "Restoring image", "Verifying restore", "Checking filesystems",
    "Mounting filesystems", "Fixing up /var", "Flashing firmware", "Updating baseband",
    "Setting boot stage", "Unmounting filesystems", "Rebooting device", "Successful",
]


class StationTest(ToolTest):
    def start_station(self, *arguments, scenario, command=(*RUNNER, str(BIN / "qnrescue.exe")),
                      **how):
        """Starts the station; the scenario is a dictionary."""
        path = self.new_folder() / "scenario.plist"
        path.write_bytes(plistlib.dumps(scenario))
        environment = how.pop("environment", {})
        process = subprocess.Popen(
            [sys.executable, str(STATION), *arguments, "--", *command],
            stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, cwd=self.new_folder(),
            env={**os.environ, **LOCALE, "PYTHONIOENCODING": "utf-8", "COLUMNS": "140",
                 "TERM": "xterm", "MOBILEDEVICE_SIMULATOR_SCENARIO": str(path), **environment},
            **{"stdout": subprocess.PIPE, **how})
        self.addCleanup(process.kill)
        return process

    def run_station(self, *arguments, status, **how):
        """The lines that the station writes; standard error matches the pattern `errors`."""
        errors = how.pop("errors", "")
        process = self.start_station(*arguments, **how)
        output, error_output = process.communicate(timeout=TIME_LIMIT)
        self.assertRegex(error_output.decode().strip(), rf"\A{errors}\Z")
        self.assertEqual(status, process.returncode, output)
        return output.decode().splitlines()

    def split_table(self, lines):
        """The lines before the table of results, and its rows by the device."""
        start = next(at for at, line in enumerate(lines) if re.match(r"ECID +result", line))
        rows = [re.split(r"  +", line, maxsplit=3) for line in lines[start + 1 :]]
        self.assertEqual(len(rows), len({row[0] for row in rows}))
        return lines[:start], {row[0]: row[1:] for row in rows}

    def steps_of(self, ecid, lines):
        return [line.split(" % ")[1] for line in lines if line.startswith(ecid) and " % " in line]


class Restoring(StationTest):
    def test_eight_devices_of_which_three_do_not_succeed(self):
        """One fails, one never finishes and one is unplugged on the way."""
        failing, hanging, unplugged = (f"000{number}2D4C0A91C026" for number in (7, 8, 9))
        good = [f"000{number}2D4C0A91C026" for number in range(2, 7)]
        silence = 6
        lines = self.run_station(
            "restore", str(self.make_bundle()), "--detect-timeout", "1", "--silence-timeout",
            str(silence), "--restore-timeout", str(TIME_LIMIT), status=1,
            scenario={**plistlib.loads(BENCH.read_bytes()), "TimeScale": 0.5})
        lines, table = self.split_table(lines)
        self.assertEqual([*good, failing, hanging, unplugged], list(table))
        for ecid in good:
            self.assertEqual("succeeded", table[ecid][0], table)
            self.assertEqual(ALL_STEPS, self.steps_of(ecid, lines))
        for ecid, result, reason, steps in (
            (failing, "failed", "Timeout waiting for NAND",
             ["Connecting to device", "Sending ramdisk to device", "Waiting for NAND"]),
            (hanging, "hung", f"no report for {silence} s, still attached",
             ["Connecting to device", "Sending ramdisk to device", "Restoring image"]),
            (unplugged, "hung", f"no report for {silence} s, no longer attached",
             ["Connecting to device", "Connected to device", "Sending ramdisk to device"]),
        ):
            found, seconds, found_reason = table[ecid]
            self.assertEqual((result, reason), (found, found_reason))
            self.assertEqual(steps, self.steps_of(ecid, lines))
            if result == "hung":
                self.assertGreaterEqual(int(seconds), silence)
        # The failure was not waited for, be it that of the device or of a timeout.
        self.assertLess(int(table[failing][1]), int(table[hanging][1]))

    def test_all_that_are_attached(self):
        reports = [report(5, 9), COMPLETE]
        bench = {"Devices": [device("A" * 16, RestoreReports=reports),
                             device("B" * 16, State="DFU", RestoreReports=reports),
                             device("C" * 16, State="BootedOS", RestoreReports=reports)]}
        lines, table = self.split_table(self.run_station(
            "restore", "x.ipsw", "--detect-timeout", "1", scenario=bench, status=0))
        self.assertEqual({"A" * 16: "succeeded", "B" * 16: "succeeded"},
                         {ecid: row[0] for ecid, row in table.items()})
        self.assertEqual(["Sending ramdisk to device", "Successful"],
                         self.steps_of("A" * 16, lines))

    def test_named_devices(self):
        bench = {"Devices": [device("A" * 16, RestoreReports=[COMPLETE]), device("B" * 16)]}
        _, table = self.split_table(self.run_station(
            "restore", "x.ipsw", "a" * 16, "A" * 16, "D" * 16, "--detect-timeout", "1",
            scenario=bench, status=1))
        self.assertEqual("succeeded", table.pop("A" * 16)[0])
        ((ecid, (result, _, reason)),) = table.items()
        self.assertEqual(("D" * 16, "failed"), (ecid, result))
        self.assertRegex(reason, f"^Failed to find device with ecid {'D' * 16} after 1 s")

    def test_time_out_and_erasing(self):
        trace = self.new_folder() / "trace"
        _, table = self.split_table(self.run_station(
            "restore", "x.ipsw", ECID, "--restore-timeout", "1", "--erase", status=1,
            scenario={"Devices": [device(RestoreReports=[])]},
            environment={"MOBILEDEVICE_SIMULATOR_TRACE": str(trace)}))
        self.assertEqual("timed out", table[ECID][0])
        options = plistlib.loads(trace.with_name("trace.options.plist").read_bytes())
        self.assertEqual("Erase", options["AuthInstallRestoreBehavior"])
        self.assertTrue(options["RestoreBundlePath"].endswith("x.ipsw"))

    def test_no_device(self):
        self.run_station("restore", "x.ipsw", "--detect-timeout", "0", scenario={}, status=1,
                         errors="station.py: no device is attached; connect one in DFU or Recovery"
                                " mode, or raise --detect-timeout")

    def test_command_that_cannot_be_started(self):
        _, table = self.split_table(self.run_station(
            "restore", "x.ipsw", ECID, command=["./nowhere"], scenario={}, status=1))
        self.assertEqual("failed", table[ECID][0])

    @unittest.skipIf(os.name == "nt", "sends a signal")
    def test_control_c(self):
        process = self.start_station(
            "restore", "x.ipsw", ECID, "--restore-timeout", str(TIME_LIMIT),
            scenario={"Devices": [device(RestoreReports=[report(5, 9)])]})
        first = process.stdout.readline().decode()
        self.assertEqual(f"{ECID}   9 % Sending ramdisk to device\n", first)
        process.send_signal(signal.SIGINT)
        output, _ = process.communicate(timeout=TIME_LIMIT)
        self.assertEqual(130, process.returncode)
        _, table = self.split_table(output.decode().splitlines())
        self.assertEqual("stopped", table[ECID][0])


class Listing(StationTest):
    def test_command_that_cannot_be_started(self):
        self.run_station("list", command=["./nowhere"], scenario={}, status=1,
                         errors="station.py: cannot start './nowhere': No such file or directory;"
                                " give the command that starts the tool after two dashes")

    def test_list(self):
        bench = {"Devices": [device(SerialNumber="F4GSM1QN0D8X", ChipID=0x8110, BoardID=12,
                                    ProductID=0x1281, ProductString="[red]Größe 漢字"),
                             device("1")]}
        lines = self.run_station("list", "--detect-timeout", "1", scenario=bench, status=0)
        self.assertEqual(
            [["ECID", "serial number", "chip", "board", "product", "name"],
             ["0000000000000001", "0000", "00", "0000"],
             [ECID, "F4GSM1QN0D8X", "8110", "0C", "1281", "[red]Größe 漢字"]],
            [re.split(r"  +", line) for line in lines])

    def test_tool_that_fails(self):
        self.run_station("list", scenario={"Nonsense": 1}, status=1,
                         errors="station.py: ended with status 70: .*Nonsense.*")


@unittest.skipUnless(pty and rich, "needs a terminal and the rich library")
class Terminal(StationTest):
    def test_bars(self):
        failed = report(5, 9, "Failed")
        failed["Status"]["Error"] = {"$type": "error", "Domain": "AM", "Code": 1,
                                     "Description": "[red]"}
        ours, theirs = pty.openpty()
        self.addCleanup(os.close, ours)
        process = self.start_station(
            "restore", "x.ipsw", ECID, "1" * 16, stdout=theirs, scenario={"Devices": [
                device(RestoreReports=[report(13, 40), {**COMPLETE, "After": 3}]),
                device("1" * 16, RestoreReports=[report(5, 9), failed])]})
        os.close(theirs)
        shown = self.read_terminal(ours)
        self.assertEqual((None, b""), process.communicate(timeout=TIME_LIMIT))
        self.assertEqual(1, process.returncode)
        text = re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", shown)
        bar = r"[━╸╺]+"
        self.assertRegex(text, rf"{ECID} {bar} +40% \d:\d\d:\d\d Restoring image")
        self.assertRegex(text, rf"{ECID} {bar} +100% \d:\d\d:\d\d succeeded")
        self.assertRegex(text, rf"1{{16}} {bar} +9% \d:\d\d:\d\d failed: \[red\]")
        self.assertRegex(text, rf"│ {ECID} +│ succeeded +│ +\d+ +│ +│")
        self.assertRegex(text, r"│ 1{16} +│ failed +│ +\d+ +│ \[red\] +│")

    def read_terminal(self, descriptor):
        """All that is shown until the program has closed its side."""
        shown = b""
        while select.select([descriptor], [], [], TIME_LIMIT)[0]:
            try:
                shown += os.read(descriptor, 65536)
            except OSError:  # nobody is left on the other side
                return shown.decode()
        self.fail(f"still running; shown: {shown!r}")


if __name__ == "__main__":
    unittest.main()
