"""How the reports of a restore become documents."""

import datetime
import plistlib
import struct
import unittest

from harness import COMPLETE, ECID, ToolTest, device, report, side_by_side

load_tests = side_by_side


class Reports(ToolTest):
    def relayed(self, *reports, arguments=()):
        """The documents' values for these reports, without that of the completion."""
        run = self.restore([*reports, COMPLETE], *arguments)
        self.assertEqual({"RestoreStatus"}, {each.type for each in run.documents})
        values = run.values("RestoreStatus")
        self.assertEqual(COMPLETE["Status"], values[-1])
        return values[:-1]

    def relayed_more(self, **more):
        """What becomes of further entries of a report."""
        given = report(5, 1)
        given["Status"].update(more)
        (value,) = self.relayed(given)
        expected = {"Status": "Restoring", "Operation": 5, "Progress": 1,
                    "QN_OperationName": "Sending ramdisk to device"}
        self.assertEqual(expected, {key: value.get(key) for key in expected})
        return {key: value[key] for key in value.keys() - expected.keys()}


class OperationNames(Reports):
    def test_names_of_operations(self):
        names = {2: "DFU download", 9: "Booting", 204: "Booting",
                 213: "Regenerating dyld shared cache", 1: "Unknown", 65: "Unknown",
                 2**31 - 1: "Unknown", -1: "Unknown", -(2**31): "Unknown"}
        values = self.relayed(*(report(code, 1) for code in names))
        self.assertEqual(names,
                         {value["Operation"]: value["QN_OperationName"] for value in values})

    def test_none_for_operation_0(self):
        values = self.relayed(report(0, 0), report(0, 99))
        self.assertEqual([{"Status": "Restoring", "Operation": 0, "Progress": progress}
                          for progress in (0, 99)], values)

    def test_a_name_that_is_there_already(self):
        named = report(5, 1)
        named["Status"]["QN_OperationName"] = "?"
        without_operation = report(0, 1)
        without_operation["Status"]["QN_OperationName"] = "?"
        self.assertEqual(["Sending ramdisk to device", "?"],
                         [each["QN_OperationName"]
                          for each in self.relayed(named, without_operation)])


class Values(Reports):
    def test_progress_of_64_bits(self):
        progress = [2**63 - 1, -(2**63), 2**31, -1, 0]
        self.assertEqual(progress, [each["Progress"] for each in self.relayed(
            *(report(5, number) for number in progress))])

    def test_texts(self):
        for text in ("", "Größe 漢字 😀", "<&>\"'", "two\nlines", "\ttab"):
            with self.subTest(text):
                (value,) = self.relayed(report(5, 1, text))
                self.assertEqual(text, value["Status"])

    def test_all_that_a_property_list_holds(self):
        more = {
            "Array": [1, ["two", [3.5]], {}, []],
            "Dictionary": {"Inner": {"Deeper": [True, False]}, "Ünï": "漢字"},
            "Data": bytes(range(256)),
            "Date": datetime.datetime(2023, 4, 5, 6, 7, 8),
            "Real": 0.25,
            "Number": 2**63 - 1,
            "Boolean": True,
        }
        self.assertEqual(more, self.relayed_more(**more))

    def test_real_numbers_that_are_whole(self):
        # Converting to an integer loses nothing.
        (value,) = self.relayed(report(5.0, 1.0))
        self.assertEqual((5, 1), (value["Operation"], value["Progress"]))

    def test_completion_in_real_numbers(self):
        run = self.restore([report(0.0, 100.0)])
        self.assertEqual(1, len(run.values("RestoreStatus")))

    def test_error_becomes_its_dictionary(self):
        error = {"Domain": "AMRestoreErrorDomain", "Code": 2**40, "Description": "Größe",
                 "FailureReason": "<reason>"}
        more = self.relayed_more(Error={"$type": "error", **error},
                                 Errors=[{"$type": "error", **error, "Code": -1}],
                                 Deep={"Inner": {"$type": "error", **error}})
        self.assertEqual({"Error": error, "Errors": [{**error, "Code": -1}],
                          "Deep": {"Inner": error}}, more)

    def test_error_without_texts(self):
        error = self.relayed_more(Error={"$type": "error", "Domain": "D", "Code": 5})["Error"]
        self.assertEqual({"Domain", "Code", "Description"}, set(error))
        self.assertEqual(("D", 5), (error["Domain"], error["Code"]))
        self.assertIn("(D error 5.)", error["Description"])

    def test_sets_and_null_are_dropped(self):
        nothing = {"$type": "set", "Values": [1, 2]}
        null = {"$type": "null"}
        self.assertEqual(
            {"Array": [1, 2], "Dictionary": {"Kept": 3}},
            self.relayed_more(Set=nothing, Null=null, Array=[1, nothing, null, 2],
                              Dictionary={"Set": nothing, "Null": null, "Kept": 3}))

    def test_pairs_without_a_string_key_are_dropped(self):
        odd = {"$type": "dictionary", "Entries": [
            {"Key": 1, "Value": "number"},
            {"Key": "text", "Value": "kept"},
            {"Key": b"data", "Value": "data"},
            {"Key": ["array"], "Value": "array"},
            {"Key": {"$type": "null"}, "Value": "null"},
        ]}
        self.assertEqual({"Odd": {"text": "kept"}}, self.relayed_more(Odd=odd))

    def test_whole_report_with_odd_keys(self):
        entries = [{"Key": key, "Value": value} for key, value in (
            ("Status", "Odd"), (7, "dropped"), ("Operation", 5), ("Progress", 1))]
        (value,) = self.relayed({"Status": {"$type": "dictionary", "Entries": entries}})
        self.assertEqual({"Status": "Odd", "Operation": 5, "Progress": 1,
                          "QN_OperationName": "Sending ramdisk to device"}, value)


class Ignored(Reports):
    def test_an_invalid_report_does_not_end_the_wait(self):
        # Operation 2^32 would be 0, the completion, when cut to 32 bits.
        run = self.restore([report(2**32, 100), report(5, 1)], "--restore-timeout", "1")
        self.assertEqual([5], [each["Operation"] for each in run.values("RestoreStatus")])
        self.assertEqual(7, run.documents[-1].value["Code"])


class ManyReports(Reports):
    def test_documents_stay_whole_and_in_order(self):
        values = self.relayed(*(report(5, number, "x" * (number % 50)) for number in range(2000)),
                              report(13, 7, Repeat=500))
        self.assertEqual([*range(2000)] + [7] * 500, [each["Progress"] for each in values])

    def test_large_report(self):
        data = bytes(range(256)) * 4000
        self.assertEqual({"Data": data}, self.relayed_more(Data=data))

    def test_scenario_in_binary_form(self):
        path = self.new_folder() / "scenario.plist"
        path.write_bytes(plistlib.dumps(
            {"Devices": [{"ECID": 1, "RestoreReports": [report(5, 1, "漢字"), COMPLETE]}]},
            fmt=plistlib.FMT_BINARY))
        run = self.run_tool("--restore", "x", "--ecid", "0000000000000001", scenario=path,
                            status=0)
        self.assertEqual(["漢字", "Successful"],
                         [each["Status"] for each in run.values("RestoreStatus")])


class WhatXmlDoesNotAllow(ToolTest):
    """It is printed all the same, as docs/documents.md says."""

    def printed(self, value, change=lambda scenario: scenario):
        """Standard output of a restore with this value in a report, whose scenario is binary."""
        given = report(5, 1)
        given["Status"]["Value"] = value
        scenario = {"Devices": [device(RestoreReports=[given, COMPLETE])], "TimeScale": 0}
        path = self.new_folder() / "scenario.plist"
        path.write_bytes(change(plistlib.dumps(scenario, fmt=plistlib.FMT_BINARY)))
        run = self.start("--restore", "x", "--ecid", ECID, scenario=path).wait()
        self.assertEqual((0, b""), (run.status, run.stderr))
        return run.stdout

    def test_texts(self):
        text = "".join(map(chr, [*range(1, 9), 11, 12, *range(14, 32), 0xFFFE, 0xFFFF]))
        output = self.printed(text)
        self.assertIn(f"<string>{text}</string>".encode(), output)
        self.assertEqual(2, output.count(b"</plist>\n\n"))
        with self.assertRaises(Exception):
            plistlib.loads(output.partition(b"</plist>\n")[0] + b"</plist>\n")

    def test_late_date(self):
        moment, late = datetime.datetime(2024, 1, 1), 1e12  # seconds since 2001
        seconds = (moment - datetime.datetime(2001, 1, 1)).total_seconds()
        output = self.printed(moment, lambda scenario: scenario.replace(
            struct.pack(">d", seconds), struct.pack(">d", late)))
        self.assertIn(b"<date>33689-09-27T01:46:40Z</date>", output)

    def test_nul(self):
        output = self.printed("before\0after")
        self.assertIn(b"<string>before\n<?xml ", output)
        self.assertNotIn(b"after", output)
        self.assertEqual(1, output.count(b"</plist>\n\n"))


if __name__ == "__main__":
    unittest.main()
