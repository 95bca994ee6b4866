"""The Python client of the examples: against the tool, and against fake tools that misbehave."""

import os
import pathlib
import plistlib
import random
import signal
import subprocess
import sys
import threading
import time
import unittest
from dataclasses import replace
from unittest.mock import patch

from harness import (BIN, COMPLETE, ECID, LOCALE, RUNNER, TIME_LIMIT, ToolTest, device, report,
                     side_by_side, split_documents)

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "examples" / "python"))
from qnrescue_client import (CommandSuccess, DeviceInfo, DeviceList, DocumentSplitter,
                             ErrorDetails, InternalError, Outcome, RestoreResult, RestoreStatus,
                             Silence, Tool, ToolFailure, UnknownDocument, UnreadableDocument,
                             parse_document)

load_tests = side_by_side

# What a fake tool can use.
PRELUDE = """
import os, plistlib, subprocess, sys, time

def document(type, value):
    sys.stdout.buffer.write(plistlib.dumps({"Type": type, "Value": value}) + b"\\n")
    sys.stdout.buffer.flush()

def report(operation=0, progress=100, status="Restoring", **more):
    document("RestoreStatus", {"Status": status, "Operation": operation, "Progress": progress,
                               **more})

def error(code, reason):
    document("InternalError", {"Domain": "qnrescue", "Code": code, "Description": "D",
                               "FailureReason": reason})
"""
FOREVER = "time.sleep(600)"


def fake_tool(*lines, silence_timeout=TIME_LIMIT):
    """Returns a tool that runs these lines of Python."""
    return Tool([sys.executable, "-c", "\n".join([PRELUDE, *lines])],
                silence_timeout=silence_timeout)


def make_document(document_type, value):
    return plistlib.dumps({"Type": document_type, "Value": value})


class Splitter(unittest.TestCase):
    DOCUMENTS = [text.strip() for text in (
        make_document("DeviceList", []),
        make_document("DeviceList", ["0000000000000001", "FFFFFFFFFFFFFFFF"]),
        make_document("X", "</plist>\n\n<?xml version=\"1.0\"?><plist>"),
        make_document("</plist>", {"</plist>": ["<", "&lt;/plist&gt;", "]]>"]}),
        make_document("X", "Größe 漢字 😀"),
        make_document("X", {"Data": bytes(range(256)), "Deep": [[[{"Deeper": []}]]]}),
        make_document("X", "\n\n\t \n"),
    )]
    STREAM = b"".join(document + b"\n\n" for document in DOCUMENTS)

    def assert_split(self, *chunks):
        splitter = DocumentSplitter()
        self.assertEqual(self.DOCUMENTS,
                         [each for chunk in chunks for each in splitter.feed(chunk)])
        self.assertEqual(b"", splitter.pending)

    def test_whole(self):
        self.assert_split(self.STREAM)

    def test_cut_at_every_byte(self):
        for cut in range(len(self.STREAM) + 1):
            self.assert_split(self.STREAM[:cut], self.STREAM[cut:])

    def test_chunks_of_every_size(self):
        for size in range(1, 200):
            self.assert_split(*(self.STREAM[start : start + size]
                                for start in range(0, len(self.STREAM), size)))

    def test_random_chunks(self):
        choice = random.Random(20)
        for _ in range(200):
            cuts = sorted(choice.choices(range(len(self.STREAM)), k=choice.randrange(60)))
            self.assert_split(*(self.STREAM[start:end]
                                for start, end in zip([0, *cuts], [*cuts, len(self.STREAM)])))

    def test_other_line_ends(self):
        self.assert_split(b"".join(document + b"\r\n\r\n" for document in self.DOCUMENTS))
        self.assert_split(b"".join(self.DOCUMENTS))

    def test_a_document_comes_with_its_last_byte(self):
        document = self.DOCUMENTS[1]
        for before in (b"", self.STREAM):
            splitter = DocumentSplitter()
            splitter.feed(before)
            self.assertEqual([], splitter.feed(document[:-1]))
            self.assertEqual(document[:-1], splitter.pending)
            self.assertEqual([document], splitter.feed(document[-1:]))

    def test_large_document_in_small_chunks(self):
        document = make_document("X", "</plist" * 40_000).strip()
        splitter = DocumentSplitter()
        found = []
        for start in range(0, len(document), 7):
            found += splitter.feed(document[start : start + 7])
        self.assertEqual([document], found)


class Documents(unittest.TestCase):
    DEVICE = {"ECID": ECID, "ProductID": -1, "BoardID": 12, "ChipID": -(2**31),
              "ProductType": 0, "FusingInfo": 3, "LocationID": 0x14100000}
    STATUS = {"Status": "Restoring", "Operation": 5, "Progress": 9,
              "QN_OperationName": "Sending ramdisk to device"}
    ERROR = {"Domain": "AMRestoreErrorDomain", "Code": 28, "Description": "D",
             "FailureReason": "R"}

    def assert_parsed(self, expected, document_type, value):
        self.assertEqual(expected, parse_document(make_document(document_type, value)))

    def test_device_list(self):
        self.assert_parsed(DeviceList([ECID]), "DeviceList", [ECID])
        self.assert_parsed(DeviceList([]), "DeviceList", [])

    def test_device_info(self):
        info = DeviceInfo(ECID, 0xFFFF, 12, 0x80000000, 0, 3, 0x14100000)
        self.assert_parsed(info, "DeviceInfo", self.DEVICE)
        self.assert_parsed(replace(info, serial_number="S", product_string="P"), "DeviceInfo",
                           {**self.DEVICE, "SerialNumber": "S", "ProductString": "P"})

    def test_command_success(self):
        self.assert_parsed(CommandSuccess(), "CommandSuccess", True)

    def test_restore_status(self):
        status = RestoreStatus("Restoring", 5, 9, "Sending ramdisk to device", None, self.STATUS)
        self.assert_parsed(status, "RestoreStatus", self.STATUS)
        self.assertFalse(status.is_complete or status.is_failure)

    def test_restore_status_without_name(self):
        complete = parse_document(make_document("RestoreStatus", COMPLETE["Status"]))
        self.assertIsNone(complete.operation_name)
        self.assertTrue(complete.is_complete)
        for other in ({"Operation": 1}, {"Progress": 99}):
            self.assertFalse(parse_document(make_document(
                "RestoreStatus", {**COMPLETE["Status"], **other})).is_complete)

    def test_restore_status_with_error(self):
        value = {**self.STATUS, "Status": "Failed", "Error": self.ERROR}
        failure = parse_document(make_document("RestoreStatus", value))
        self.assertTrue(failure.is_failure)
        self.assertEqual(ErrorDetails("AMRestoreErrorDomain", 28, "D", "R"), failure.error)
        self.assertEqual(value, failure.details)

    def test_internal_error(self):
        self.assert_parsed(InternalError(ErrorDetails("AMRestoreErrorDomain", 28, "D", "R")),
                           "InternalError", self.ERROR)
        self.assert_parsed(InternalError(ErrorDetails("D", 7, "Text")), "InternalError",
                           {"Domain": "D", "Code": 7, "Description": "Text"})

    def test_text_of_an_error(self):
        self.assertEqual("R", str(ErrorDetails("Domain", 7, "D", "R")))
        self.assertEqual("D", str(ErrorDetails("Domain", 7, "D")))
        self.assertEqual("Domain error 7", str(ErrorDetails("Domain", 7)))

    def test_other_documents(self):
        for document_type, value in (
            ("Novelty", {"A": [1]}), ("DeviceList", 1), ("DeviceInfo", {"ECID": ECID}),
            ("DeviceInfo", []), ("RestoreStatus", {}), ("RestoreStatus", "x"),
            ("RestoreStatus", {**self.STATUS, "Progress": "x"}), ("InternalError", True),
        ):
            self.assert_parsed(UnknownDocument(document_type, value), document_type, value)

    def test_unreadable_documents(self):
        for text in (b"", b"</plist>", make_document("X", 1) + b"x", make_document("X", 1)[:-20],
                     plistlib.dumps([1]), plistlib.dumps({"Type": "X"}),
                     b"<plist><dict><key>Type</key><date>x</date></dict></plist>"):
            event = parse_document(text)
            self.assertIsInstance(event, UnreadableDocument)
            self.assertEqual(text, event.text)
            self.assertTrue(event.reason)

    def test_control_characters(self):
        text = make_document("X", "a@b\tc\nd").replace(b"@", b"\0\x01\x1b\x1f")
        self.assertEqual(UnknownDocument("X", "ab\tc\nd"), parse_document(text))

    def test_what_is_left_of_a_document_that_ended_early(self):
        broken = make_document("RestoreStatus", {"Status": "a"}).partition(b"a</string>")[0]
        whole = make_document("CommandSuccess", True)
        self.assertEqual(CommandSuccess(), parse_document(broken + b"\n" + whole))


class Runs(unittest.TestCase):
    def start(self, *lines, **how):
        run = fake_tool(*lines, **how).start()
        self.addCleanup(run.__exit__)
        return run

    def test_events_come_as_the_run_goes_on(self):
        run = self.start("document('A', 1)", "document('B', 2)", FOREVER)
        events = iter(run)
        self.assertEqual(UnknownDocument("A", 1), next(events))
        self.assertEqual(UnknownDocument("B", 2), next(events))
        self.assertIsNone(run.status)
        with self.assertRaises(subprocess.TimeoutExpired):
            run.wait(0.1)
        run.kill()
        self.assertEqual([], list(events))
        self.assertNotIn(run.status, (None, 0))

    def test_end(self):
        run = self.start("document('A', 1)", "print('first\\nlast', file=sys.stderr)",
                         "sys.exit(5)")
        self.assertEqual([UnknownDocument("A", 1)], list(run))
        self.assertEqual((5, 5), (run.status, run.wait()))
        self.assertEqual(["first", "last"], run.error_output().split())
        self.assertEqual("ended with status 5: last", run.describe_end())

    def test_output_that_breaks_off(self):
        run = self.start("sys.stdout.write('<?xml')")
        self.assertEqual(
            [UnreadableDocument(b"<?xml", "the output ends within a document")], list(run))

    def test_output_that_another_process_holds_open(self):
        run = self.start(
            "other = subprocess.Popen([sys.executable, '-c', 'import time; time.sleep(600)'])",
            "document('Other', other.pid)")
        events = iter(run)
        other = next(events).value
        self.addCleanup(os.kill, other, signal.SIGTERM)
        started = time.monotonic()
        self.assertEqual([], list(events))
        self.assertLess(time.monotonic() - started, 30)
        self.assertEqual(0, run.status)

    def test_leaving_the_context_ends_the_process(self):
        with self.start(FOREVER) as run:
            self.assertIsNone(run.status)
        self.assertNotIn(run.status, (None, 0))

    def test_silence(self):
        run = self.start("document('A', 1)", FOREVER, silence_timeout=4)
        events = iter(run)
        self.assertEqual(UnknownDocument("A", 1), next(events))
        with self.assertRaisesRegex(Silence, "^no report for 4 s$"):
            next(events)
        self.assertIsNone(run.status)

    def test_no_silence_while_there_are_reports(self):
        run = self.start("for number in range(20): document('A', number); time.sleep(0.2)",
                         silence_timeout=3)
        self.assertEqual(list(range(20)), [event.value for event in run])

    def test_command_that_is_not_there(self):
        with self.assertRaises(OSError):
            Tool(["./no such command"]).start()


class Questions(unittest.TestCase):
    def test_answer(self):
        self.assertEqual(["A"], fake_tool("document('DeviceList', ['A'])").list_devices())

    def test_arguments(self):
        tool = fake_tool("document('DeviceList', sys.argv[1:])")
        self.assertEqual(["--list-devices"], tool.list_devices())
        self.assertEqual(["--list-devices", "--detect-timeout", "7"],
                         replace(tool, detect_timeout=7).list_devices())

    def assert_fails(self, reason, ask):
        with self.assertRaises(ToolFailure) as caught:
            ask()
        self.assertEqual(reason, str(caught.exception))

    def test_error(self):
        self.assert_fails("the reason", lambda: fake_tool(
            "error(4, 'the reason')", "sys.exit(4)").device_info(ECID))

    def test_no_answer(self):
        self.assert_fails("ended with status 70: the scenario", fake_tool(
            "print('the scenario', file=sys.stderr)", "sys.exit(70)").list_devices)
        self.assert_fails("ended with status 0", fake_tool("document('X', 1)").list_devices)

    def test_silence(self):
        self.assert_fails("no report for 0.2 s",
                          fake_tool(FOREVER, silence_timeout=0.2).list_devices)


class Restores(unittest.TestCase):
    def restore(self, *lines, **how):
        """Returns the events and the result of a restore by this fake tool, which then has ended."""
        with fake_tool(*lines, **how).restore(ECID, "x.ipsw") as restore:
            events = list(restore)
            self.assertIsNotNone(restore.status)
        return events, restore.result

    def assert_result(self, outcome, reason, *lines, **how):
        events, result = self.restore(*lines, **how)
        self.assertEqual(RestoreResult(outcome, reason), result)
        return events

    def test_success(self):
        events = self.assert_result(Outcome.SUCCEEDED, "", "report(5, 1)", "report()")
        self.assertEqual([5, 0], [event.operation for event in events])

    def test_reports_after_the_completion(self):
        self.assert_result(Outcome.SUCCEEDED, "", "report()", "report(5, 1)")

    def test_a_status_other_than_0_is_no_success(self):
        self.assert_result(Outcome.FAILED, "ended with status 3", "report()", "sys.exit(3)")

    def test_an_error_document_makes_no_success(self):
        self.assert_result(Outcome.FAILED, "R", "report()", "error(1, 'R')")

    def test_the_end_alone_is_no_success(self):
        self.assert_result(Outcome.FAILED, "ended with status 0", "report(5, 1)")
        self.assert_result(Outcome.FAILED, "ended with status 0", "report(0, 99)")

    def test_failure_ends_the_process(self):
        events = self.assert_result(
            Outcome.FAILED, "Timeout waiting for NAND", "report(5, 1)",
            "report(28, 9, 'Failed', Error={'Domain': 'AM', 'Code': 28,"
            " 'Description': 'Timeout waiting for NAND'})", FOREVER)
        self.assertEqual([False, True], [event.is_failure for event in events])

    def test_failure_without_an_error(self):
        self.assert_result(Outcome.FAILED, "Failed", "report(28, 9, 'Failed')", FOREVER)

    def test_time_out_of_the_tool(self):
        self.assert_result(Outcome.TIMED_OUT, "R", "report(5, 1)", "error(7, 'R')")

    def test_other_error_of_the_tool(self):
        self.assert_result(Outcome.FAILED, "R", "error(4, 'R')", "sys.exit(4)")

    def test_silence(self):
        self.assert_result(Outcome.HUNG, "no report for 1 s", FOREVER, silence_timeout=1)

    def test_completion_without_an_end(self):
        self.assert_result(Outcome.HUNG, "no report for 3 s", "report()", FOREVER,
                           silence_timeout=3)

    def test_documents_of_other_kinds_harm_nothing(self):
        self.assert_result(Outcome.SUCCEEDED, "", "document('Novelty', 1)",
                           "print('<plist>x</plist>')", "sys.stdout.flush()", "report()")

    def test_killed_by_another_thread(self):
        with fake_tool("report(5, 1)", FOREVER).restore(ECID, "x.ipsw") as restore:
            for _ in restore:
                threading.Thread(target=restore.kill).start()
        self.assertEqual(RestoreResult(Outcome.STOPPED), restore.result)

    def test_left_early(self):
        with fake_tool("report(5, 1)", FOREVER).restore(ECID, "x.ipsw") as restore:
            next(iter(restore))
        self.assertEqual(RestoreResult(Outcome.STOPPED), restore.result)
        self.assertIsNotNone(restore.status)

    def test_arguments(self):
        tool = fake_tool("document('Arguments', sys.argv[1:])")
        for how, further in (({}, []), ({"erase": True}, ["--erase"]),
                             ({"timeout": 9}, ["--restore-timeout", "9"])):
            with tool.restore(ECID, "x.ipsw", **how) as restore:
                self.assertEqual([["--restore", "x.ipsw", "--ecid", ECID, *further]],
                                 [event.value for event in restore])


class TheTool(ToolTest):
    """The client with the tool itself."""

    ONE_BY_ONE = True  # they set variables of this process

    def use(self, scenario):
        """Returns the tool, with a scripted bench of devices."""
        path = self.new_folder() / "scenario.plist"
        path.write_bytes(plistlib.dumps(scenario, fmt=plistlib.FMT_BINARY))
        environment = patch.dict(os.environ, LOCALE, MOBILEDEVICE_SIMULATOR_SCENARIO=str(path))
        environment.start()
        self.addCleanup(environment.stop)
        return Tool([*RUNNER, str(BIN / "qnrescue.exe")], detect_timeout=1,
                    silence_timeout=TIME_LIMIT)

    def test_its_output_cut_at_every_byte(self):
        stream = self.restore(None, "--restore", str(self.make_bundle())).stdout
        documents = [document.text.strip() for document in split_documents(stream)]
        self.assertGreater(len(documents), 15)
        for cut in range(len(stream)):
            splitter = DocumentSplitter()
            self.assertEqual(documents,
                             splitter.feed(stream[:cut]) + splitter.feed(stream[cut:]))

    def test_list_and_info(self):
        tool = self.use({"Devices": [
            device(ProductID=0xFFFF, ChipID=0x8110, SerialNumber="S 漢字\u0001"), device("1")]})
        self.assertEqual(["0000000000000001", ECID], tool.list_devices())
        self.assertEqual(DeviceInfo(ECID, 0xFFFF, 0, 0x8110, 0, 0, 0, "S 漢字"),
                         tool.device_info(ECID))
        with self.assertRaisesRegex(ToolFailure, "^Failed to find device with ecid .* after 1 s"):
            tool.device_info("0000000000000002")

    def test_recovery_command(self):
        with self.use({"Devices": [device()]}).start("--exit-recovery", "--ecid", ECID) as run:
            self.assertEqual([CommandSuccess()], list(run))
            self.assertEqual(0, run.status)

    def test_restores(self):
        failed = report(28, 18, "Failed")
        failed["Status"]["Error"] = {"$type": "error", "Domain": "AM", "Code": 28,
                                     "Description": "NAND"}
        for outcome, reason, reports, how in (
            (Outcome.SUCCEEDED, "", [report(5, 9), COMPLETE], {}),
            (Outcome.FAILED, "NAND", [report(5, 9), failed], {}),
            (Outcome.TIMED_OUT, "Aborting, restore did not complete in 1 seconds", [report(5, 9)],
             {"timeout": 1}),
        ):
            with self.subTest(outcome):
                tool = self.use({"Devices": [device(RestoreReports=reports)]})
                with tool.restore(ECID, "x.ipsw", **how) as restore:
                    first, *_ = restore
                self.assertEqual(RestoreResult(outcome, reason), restore.result)
                self.assertEqual((5, 9, "Sending ramdisk to device"),
                                 (first.operation, first.progress, first.operation_name))


if __name__ == "__main__":
    unittest.main()
