"""Timeouts that overflow where they are counted in milliseconds of 31 or 32 bits."""

import unittest

from harness import COMPLETE, ECID, ToolTest, device, side_by_side

load_tests = side_by_side

LONG = ("2147484", "4294968", "4294967295")


class LongTimeouts(ToolTest):
    def test_list_waits(self):
        self.assert_goes_on_waiting([
            self.start("--list-devices", "--detect-timeout", seconds, scenario={})
            for seconds in LONG], "AMRestorableDeviceRegisterForNotifications")

    def test_wait_for_a_device_waits(self):
        self.assert_goes_on_waiting([
            self.start("--device-info", "--ecid", ECID, "--detect-timeout", seconds, scenario={})
            for seconds in LONG], "AMRestorableDeviceRegisterForNotifications")

    def test_wait_for_a_restore_waits(self):
        scenario = {"Devices": [device(RestoreReports=[])]}
        self.assert_goes_on_waiting([
            self.start("--restore", "x", "--ecid", ECID, "--restore-timeout", seconds,
                       scenario=scenario)
            for seconds in LONG], "AMRestorableDeviceRestore")

    def test_late_device_ends_the_wait(self):
        for seconds in LONG:
            run = self.run_tool("--device-info", "--ecid", ECID, "--detect-timeout", seconds,
                                scenario={"Devices": [device(ConnectAfter=1)]}, status=0)
            self.assertEqual(ECID, run.documents[0].value["ECID"])
            self.assertLess(run.seconds, 25)

    def test_completion_ends_the_wait(self):
        for seconds in LONG:
            run = self.restore([{**COMPLETE, "After": 1}], "--restore-timeout", seconds,
                               time_scale=1)
            self.assertEqual(["RestoreStatus"], [each.type for each in run.documents])
            self.assertLess(run.seconds, 25)

    def test_late_device_and_completion_end_both_waits(self):
        late = device(ConnectAfter=1, RestoreReports=[{**COMPLETE, "After": 1}])
        for seconds in LONG:
            run = self.run_tool("--restore", "x.ipsw", "--ecid", ECID, "--detect-timeout", seconds,
                                "--restore-timeout", seconds, scenario={"Devices": [late]},
                                status=0)
            self.assertEqual(["RestoreStatus"], [each.type for each in run.documents])
            self.assertLess(run.seconds, 25)


if __name__ == "__main__":
    unittest.main()
