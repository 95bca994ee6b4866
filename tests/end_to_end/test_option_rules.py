"""The rules that combine options, where the whole program is needed to see what they lead to."""

import unittest

from harness import COMPLETE, ECID, ToolTest, device, side_by_side

load_tests = side_by_side


class OptionRules(ToolTest):
    def test_refusal_comes_after_the_library_is_warmed_up(self):
        run = self.assert_fails(3, "Invalid command option", scenario={})
        self.assertEqual(["AMDeviceNotificationSubscribe", "AMDeviceNotificationUnsubscribe"],
                         run.call_names)

    def test_device_info_with_restore(self):
        run = self.run_tool("--restore", "", "--device-info", "--erase", "--restore-timeout", "0",
                            "--ecid", ECID, scenario={"Devices": [device()]}, status=0)
        self.assertEqual(["DeviceInfo"], [each.type for each in run.documents])
        self.assertNotIn("AMRestorableDeviceRestore", run.call_names)

    def test_restore_with_all_that_goes_with_it(self):
        scenario = {"Devices": [device(RestoreReports=[COMPLETE])]}
        run = self.run_tool("--restore", "x.ipsw", "--restore-timeout", "600", "--erase",
                            "--enter-restore-mode", "--no-cleanup", "--detect-timeout", "30",
                            "--ecid", ECID, scenario=scenario, status=0)
        self.assertEqual(["RestoreStatus"], [each.type for each in run.documents])


if __name__ == "__main__":
    unittest.main()
