"""Failures of the library, and ends of runs while it is still talking."""

import unittest

from harness import COMPLETE, ECID, ToolTest, device, report, side_by_side

load_tests = side_by_side


class FailingRegistration(ToolTest):
    def register(self, status, *arguments, **error):
        run = self.run_tool(*(arguments or ("--list-devices",)), status=status, scenario={
            "Devices": [device()], "Failures": {"RegisterForNotifications": error}})
        first, second = run.documents
        self.assertEqual("InternalError", first.type)
        self.assertEqual(first, second)
        self.assertEqual("AMRestorableDeviceRegisterForNotifications context=set -> 0",
                         run.calls[-1])
        return first.value

    def test_error_is_printed_twice(self):
        error = {"Domain": "Größe", "Code": 5, "Description": "<what>", "FailureReason": "漢字"}
        self.assertEqual(error, self.register(5, **error))

    def test_codes(self):
        kept = {code: code for code in range(9)}
        others = dict.fromkeys((9, 100, -1, -5, 2**31, 2**32, 2**32 + 3, 2**63 - 1, -(2**63)), 1)
        for code, status in {**kept, **others}.items():
            with self.subTest(code):
                value = self.register(status, Domain="D", Code=code, Description="d")
                self.assertEqual({"Domain": "D", "Code": code, "Description": "d"}, value)

    def test_error_without_texts(self):
        value = self.register(7, Domain="SomeDomain", Code=7)
        self.assertEqual({"Domain", "Code", "Description"}, set(value))
        self.assertIn("(SomeDomain error 7.)", value["Description"])

    def test_error_with_a_reason_only(self):
        value = self.register(1, Domain="SomeDomain", Code=70, FailureReason="because")
        self.assertEqual("because", value["FailureReason"])
        self.assertRegex(value["Description"], r"\AThe operation couldn.+ because\Z")

    def test_each_command(self):
        for command in (("--device-info",), ("--exit-recovery",), ("--restore", "x.ipsw")):
            self.register(2, *command, "--ecid", ECID, Domain="D", Code=2)


class LateCalls(ToolTest):
    """The run ends in order while notifications or reports keep coming."""

    STREAM = {"Notifications": [{"ECID": ECID, "Type": 5} for _ in range(5000)], "TimeScale": 0}

    def test_error_while_notifications_come(self):
        for _ in range(5):
            self.assert_fails(
                5, "Device in state DFU not valid for exit-recovery", "--exit-recovery",
                "--ecid", ECID, scenario={"Devices": [device(State="DFU")], **self.STREAM})

    def test_error_while_devices_come_and_go(self):
        comings = [{"ECID": ECID, "Type": number % 2} for number in range(5000)]
        for _ in range(5):
            self.assert_fails(
                4, "Failed to find device with ecid 00000000000000AA after 0 seconds",
                "--device-info", "--ecid", "00000000000000AA", "--detect-timeout", "0",
                scenario={"Devices": [device()], "Notifications": comings, "TimeScale": 0})

    def test_success_while_notifications_come(self):
        for _ in range(5):
            run = self.run_tool("--device-info", "--ecid", ECID, status=0,
                                scenario={"Devices": [device()], **self.STREAM})
            self.assertEqual(ECID, run.documents[0].value["ECID"])

    def test_list_while_devices_come_and_go(self):
        comings = [{"ECID": number % 7 + 1, "Type": number % 2} for number in range(5000)]
        for _ in range(3):
            run = self.run_tool("--list-devices", "--detect-timeout", "0", status=0, scenario={
                "Devices": [device(number) for number in range(1, 8)],
                "Notifications": comings, "TimeScale": 0})
            (ecids,) = run.values("DeviceList")
            self.assertEqual(sorted(set(ecids)), ecids)

    def test_nothing_changes_after_teardown_has_begun(self):
        comings = [{"ECID": ECID, "Type": number % 2} for number in range(20000)]
        unregister = "waitForCompletion: AMRestorableDeviceUnregisterForNotifications()"
        for _ in range(5):
            run = self.run_tool("--list-devices", "--detect-timeout", "0", "--debug", status=0,
                                scenario={"Devices": [device()], "Notifications": comings,
                                          "TimeScale": 0})
            lines = run.stderr_lines
            after = lines[lines.index(unregister) + 1 :]
            self.assertLessEqual(
                set(after), {"deviceNotificationCallback: Ignoring notification, inTeardown"})

    def test_debug_lines_stay_whole(self):
        run = self.run_tool("--exit-recovery", "--ecid", ECID, "--debug", status=5,
                            scenario={"Devices": [device(State="DFU")], **self.STREAM})
        for line in run.stderr_lines:
            self.assertRegex(line, r"\A(device_notifier_state|waitForCompletion|waitForDevice"
                                   r"|deviceNotificationCallback): ")

    def test_time_out_while_reports_come(self):
        for _ in range(5):
            run = self.restore([report(5, 1, Repeat=100000)], "--restore-timeout", "0")
            *reports, error = (each.type for each in run.documents if each.type != "RestoreStatus")
            self.assertEqual(([], "InternalError"), (reports, error))

    def test_completion_while_notifications_come(self):
        scenario = {"Devices": [device(RestoreReports=[COMPLETE])], **self.STREAM}
        for _ in range(5):
            run = self.run_tool("--restore", "x", "--ecid", ECID, scenario=scenario, status=0)
            self.assertEqual([COMPLETE["Status"]], run.values("RestoreStatus"))


class BadScenarios(ToolTest):
    """A scenario that cannot be played ends the process with one line that says where it errs."""

    def assert_scenario_fault(self, scenario, *texts):
        process = self.start("--list-devices", scenario=scenario)
        run = process.wait()
        self.assertEqual((70, b""), (run.status, run.stdout))
        (line,) = run.stderr_lines
        for text in texts:
            self.assertIn(text, line)

    def test_missing_file(self):
        self.assert_scenario_fault(self.new_folder() / "no such file.plist", "no such file.plist")

    def test_no_property_list(self):
        path = self.new_folder() / "text.plist"
        path.write_text("<plist>")
        self.assert_scenario_fault(path, "text.plist")

    def test_faults_are_named(self):
        for scenario, place in (
            ({"Device": []}, "Device"),
            ({"Devices": [device("1"), device("2"), device(State="Asleep")]}, "Devices[2].State"),
            ({"Devices": [{"State": "DFU"}]}, "Devices[0]"),
            ({"Devices": [device("12345678123456789")]}, "Devices[0].ECID"),
            ({"Devices": [device(RestoreReports=[
                {"Status": {"X": {"$type": "frog"}}}])]}, "Devices[0].RestoreReports[0].Status.X"),
            ({"Devices": [device(RestoreReports=[
                {"Status": {"$type": "error", "Domain": "D", "Code": 1}}])]},
             "Devices[0].RestoreReports[0].Status.$type"),
            ({"Devices": [device(RestoreReports=[
                {"Status": {"$type": "set", "Values": []}}])]},
             "Devices[0].RestoreReports[0].Status.$type"),
            ({"Devices": [device(State=2**31)]}, "Devices[0].State"),
            ({"Devices": [device(State="DFU")], "Notifications": [{"Type": 2**32}]},
             "Notifications[0].Type"),
            ({"Notifications": [{"Type": 0, "ECID": "77"}]}, "Notifications[0].ECID"),
            ({"TimeScale": "fast"}, "TimeScale"),
        ):
            with self.subTest(place):
                self.assert_scenario_fault(scenario, "scenario.plist", place)


if __name__ == "__main__":
    unittest.main()
