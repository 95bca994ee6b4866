"""--output-pipe: the documents go to an inherited pipe instead of standard output."""

import os
import plistlib
import select
import subprocess
import time
import unittest

from harness import (BIN, COMPLETE, DOCUMENT_END, ECID, RUNNER, TIME_LIMIT, ToolTest, device,
                     report, side_by_side, split_documents)

load_tests = side_by_side

# What abort() makes the exit status of a Windows process.
ABORTED = 3
WRITE_FAILED = r"(?s)terminate called after throwing .*what\(\):  write: "


class StandardOutput(ToolTest):
    def test_standard_output_that_is_a_pipe(self):
        process = subprocess.Popen(
            [*RUNNER, str(BIN / "qnrescue.exe"), "--list-devices", "--detect-timeout", "0"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        with process.stdout:
            self.assertEqual(0, process.wait(TIME_LIMIT))
            # No more than this, as a service that Wine started may keep the pipe open.
            output = process.stdout.read1(65536)
        self.assertEqual(["DeviceList"], [each.type for each in split_documents(output)])

    def test_standard_output_that_is_read_late(self):
        """Most of the list is still to be written long after the command has printed it."""
        folder = self.new_folder()
        devices = [device(number) for number in range(1, 5001)]
        (folder / "scenario").write_bytes(plistlib.dumps({"Devices": devices}))
        process = subprocess.Popen(
            [*RUNNER, str(BIN / "qnrescue.exe"), "--list-devices", "--detect-timeout", "1"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            env={**os.environ, "MOBILEDEVICE_SIMULATOR_SCENARIO": str(folder / "scenario")})
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.kill)
        readable, _, _ = select.select([process.stdout], [], [], TIME_LIMIT)
        self.assertTrue(readable)
        time.sleep(1)  # long enough for an end that does not wait
        output = b""
        while part := process.stdout.read1(65536):
            output += part
            if output.endswith(DOCUMENT_END + b"\n"):
                break
        self.assertEqual(["DeviceList"], [each.type for each in split_documents(output)])
        self.assertGreater(len(output), 2 * 65536)
        self.assertEqual(0, process.wait(TIME_LIMIT))

    def test_nobody_reads_standard_output(self):
        folder = self.new_folder()
        reader, writer = os.pipe()
        os.close(reader)
        with open(writer, "wb") as gone, open(folder / "stderr", "wb") as errors:
            process = subprocess.Popen(
                [*RUNNER, str(BIN / "qnrescue.exe"), "--list-devices", "--detect-timeout", "0"],
                stdin=subprocess.DEVNULL, stdout=gone, stderr=errors,
                env={**os.environ, "MOBILEDEVICE_SIMULATOR_TRACE": str(folder / "trace")})
        self.assertEqual(0, process.wait(TIME_LIMIT))
        self.assertEqual("live-objects 0", (folder / "trace").read_text().splitlines()[-1])
        self.assertEqual(b"", (folder / "stderr").read_bytes())


class OutputPipe(ToolTest):
    def start_host(self, mode, *arguments, **how):
        """Starts the tool with a pipe as output."""
        return self.start(*arguments, program=("pipe_host.exe", mode, "tool.stdout", "--",
                                               "--output-pipe", "{pipe}"), **how)

    def run_host(self, *arguments, status=0, **how):
        """An orderly run; the documents of the result are what came through the pipe."""
        process = self.start_host("overlapped", *arguments, **how)
        run = self.finish(process, status=status, arguments=arguments)
        self.assertEqual(b"", process.content("tool.stdout"))
        return run

    def assert_aborts(self, process):
        """The process fails at its first write, at once and without naming any source file."""
        run = process.wait()
        self.assertEqual(ABORTED, run.status)
        self.assertLess(run.seconds, 30)
        text = run.stderr.decode()
        self.assertRegex(text, WRITE_FAILED)
        self.assertNotRegex(text, r"\.[ch]pp|\.ipp|[\\/]build[\\/]")
        self.assertNotIn("live-objects 0", run.trace[-1:])  # no library runs at such an end
        return run


class GoodPipe(OutputPipe):
    def test_list(self):
        run = self.run_host("--list-devices", "--detect-timeout", "1",
                            scenario={"Devices": [device(), device("1")]})
        self.assertEqual([["0000000000000001", ECID]], run.values("DeviceList"))

    def test_device_info_with_other_letters(self):
        run = self.run_host("--device-info", "--ecid", ECID,
                            scenario={"Devices": [device(SerialNumber="ß 漢字 😀")]})
        self.assertEqual("ß 漢字 😀", run.documents[0].value["SerialNumber"])

    def test_tool_error(self):
        run = self.run_host("--device-info", status=3)
        self.assert_error(run.documents[0], 3, "Option --device-info requires --ecid")

    def test_debug_lines_go_to_standard_error(self):
        run = self.run_host("--exit-recovery", "--ecid", ECID, "--debug",
                            scenario={"Devices": [device()]})
        self.assertEqual([True], run.values("CommandSuccess"))
        self.assertEqual("device_notifier_state: initializing", run.stderr_lines[0])
        self.assertIn("operateOnRecoveryDevice: AMRecoveryModeDeviceReboot()", run.stderr_lines)

    def test_help_goes_to_standard_error(self):
        run = self.run_host("--help")
        self.assertEqual(b"", run.stdout)
        self.assertTrue(run.stderr.startswith(b"Program options:\n"))

    def test_whole_restore(self):
        scenario = {"Devices": [device()], "TimeScale": 0}
        arguments = ("--restore", str(self.make_bundle()), "--ecid", ECID)
        run = self.run_host(*arguments, scenario=scenario)
        same = self.run_tool(*arguments, scenario=scenario)
        self.assertGreater(len(run.documents), 15)
        self.assertEqual(same.stdout, run.stdout)

    def test_many_and_large_documents(self):
        reports = [*(report(5, number, "x" * (number % 300)) for number in range(1000)),
                   report(6, 1, "漢" * 100000), COMPLETE]
        run = self.run_host("--restore", "x", "--ecid", ECID, scenario={
            "Devices": [device(RestoreReports=reports)], "TimeScale": 0})
        self.assertEqual([each["Status"]["Status"] for each in reports],
                         [value["Status"] for value in run.values("RestoreStatus")])

    def test_documents_come_as_the_restore_goes_on(self):
        process = self.start_host("overlapped", "--restore", "x", "--ecid", ECID, scenario={
            "Devices": [device(RestoreReports=[report(5, 1), {**COMPLETE, "After": 5}])]})
        self.assertEqual(1, process.next_document().value["Progress"])
        self.assertTrue(process.running())
        self.finish(process, status=0)

    def test_run_ends_once_all_is_written(self):
        devices = [device(number) for number in range(1, 200)]
        process = self.start_host("late", "--list-devices", "--detect-timeout", "1",
                                  scenario={"Devices": devices})
        run = self.finish(process, status=0)
        self.assertEqual([199], [len(each) for each in run.values("DeviceList")])

    def test_parse_error_goes_to_standard_output(self):
        process = self.start_host("overlapped", "--frobnicate")
        run = self.finish(process, status=3)
        self.assertEqual(b"", run.stdout)
        (document,) = split_documents(process.content("tool.stdout"))
        self.assert_error(document, 3, "unrecognised option '--frobnicate'")


class BrokenPipe(OutputPipe):
    COMMAND = ("--list-devices", "--detect-timeout", "0")

    def test_nobody_reads(self):
        for _ in range(3):
            process = self.start_host("closed", *self.COMMAND, scenario={})
            run = self.assert_aborts(process)
            self.assertEqual(b"", run.stdout)
            self.assertEqual(b"", process.content("tool.stdout"))

    def test_reader_leaves_within_a_document(self):
        for _ in range(3):
            run = self.assert_aborts(self.start_host(
                "closed-later", "--list-devices", "--detect-timeout", "1",
                scenario={"Devices": [device(number) for number in range(1, 200)]}))
            self.assertTrue(run.stdout.startswith(b"<?xml"))
            self.assertNotIn(b"</plist>", run.stdout)

    def test_reader_leaves_within_a_restore(self):
        self.assert_aborts(self.start_host(
            "closed-later", "--restore", "x", "--ecid", ECID,
            scenario={"Devices": [device(RestoreReports=[report(5, 1, Repeat=100000)])],
                      "TimeScale": 0}))

    def test_handle_without_overlapped_writing(self):
        process = self.start_host("synchronous", *self.COMMAND, scenario={})
        run = self.assert_aborts(process)
        self.assertEqual(b"", run.stdout)
        self.assertEqual(b"", process.content("tool.stdout"))

    def test_debug_lines_come_before_the_end(self):
        for _ in range(5):
            run = self.assert_aborts(self.start_host("closed", "--debug", *self.COMMAND,
                                                     scenario={}))
            lines, _, _ = run.stderr.decode().partition("terminate called")
            self.assert_lines(
                ["device_notifier_state: initializing",
                 r"waitForCompletion: AMRestorableDeviceRegisterForNotifications\(\)"],
                lines.splitlines()[:2])

    def test_writing_end_that_serves_another_run_or_port(self):
        for mode in ("used", "bound"):
            with self.subTest(mode):
                process = self.start_host(mode, *self.COMMAND, scenario={})
                run = self.assert_aborts(process)
                self.assertEqual(b"", run.stdout)

    def test_help_needs_no_pipe(self):
        for mode in ("closed", "synchronous", "bound"):
            run = self.finish(self.start_host(mode, "--help"), status=0, arguments=("--help",))
            self.assertTrue(run.stderr.startswith(b"Program options:\n"))


class NoPipe(OutputPipe):
    """Numbers that are no handle are noticed at the first write."""

    def test_first_document(self):
        for number in ("99999", "0", "-1", "2147483647", "-2147483648", "7"):
            with self.subTest(number):
                run = self.assert_aborts(self.start("--output-pipe", number, "--list-devices",
                                                    "--detect-timeout", "0", scenario={}))
                self.assertEqual(b"", run.stdout)

    def test_first_tool_error(self):
        run = self.assert_aborts(self.start("--output-pipe", "99999", scenario={}))
        self.assertEqual(b"", run.stdout)

    def test_help(self):
        for number in ("99999", "0", "-1"):
            run = self.run_tool("--help", "--output-pipe", number, status=0, scenario={})
            self.assertTrue(run.stderr.startswith(b"Program options:\n"))

    def test_run_without_documents(self):
        run = self.run_tool("--debug-dump", "--output-pipe", "99999", status=0, scenario={})
        self.assertEqual(b"", run.stdout)


if __name__ == "__main__":
    unittest.main()
