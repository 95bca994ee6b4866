"""The rules that combine options, and their texts."""

import unittest

from harness import COMPLETE, ECID, ToolTest, device, side_by_side

load_tests = side_by_side

INVALID_ECID = (2, "Invalid ecid")
NO_COMMAND = (3, "Invalid command option")


class OptionRules(ToolTest):
    def assert_refused(self, code, reason, *arguments):
        """The command is refused before the tool waits for devices, and so at once."""
        run = self.assert_fails(code, reason, *arguments, "--detect-timeout", "4294967295",
                                scenario={})
        self.assertNotIn("AMRestorableDeviceRegisterForNotifications", run.call_names)

    def test_ecid_is_required(self):
        for option, value in (
            ("device-info", ()),
            ("exit-recovery", ()),
            ("no-exit-recovery", ()),
            ("restore", ("x.ipsw",)),
            ("restore-plist", ("x.plist",)),
        ):
            with self.subTest(option):
                self.assert_refused(3, f"Option --{option} requires --ecid", f"--{option}", *value)

    def test_ecid_is_required_before_the_path_is_looked_at(self):
        self.assert_refused(3, "Option --restore requires --ecid", "--restore", "")

    def test_ecid_is_refused(self):
        self.assert_refused(3, "Option --list-devices not compatible with --ecid",
                            "--list-devices", "--ecid", ECID)

    def test_ecid_that_is_none(self):
        for text in ("zz", "", " ", "123456789ABCDEF", "0123456789ABCDEF0", "0123456789ABCDEG",
                     "0x23456789ABCDEF", " 123456789ABCDEF", "123456789ABCDEF ", "-123456789ABCDEF",
                     "１２３４５６７８９０１２３４５６", "äöüäöüäö"):
            with self.subTest(text):
                self.assert_refused(*INVALID_ECID, "--device-info", "--ecid", text)

    def test_ecid_is_converted_before_any_rule(self):
        self.assert_refused(*INVALID_ECID, "--ecid", "zz", "--list-devices")
        self.assert_refused(*INVALID_ECID, "--ecid", "zz", "--erase")
        self.assert_refused(*INVALID_ECID, "--ecid", "zz")

    def test_erase_goes_with_restore_alone(self):
        rule = (3, "Option --erase only compatible with --restore")
        self.assert_refused(*rule, "--erase")
        self.assert_refused(*rule, "--erase", "--list-devices")
        self.assert_refused(*rule, "--erase", "--device-info", "--ecid", ECID)
        self.assert_refused(*rule, "--erase", "--restore-plist", "o.plist", "--ecid", ECID)

    def test_restore_timeout_goes_with_restore_alone(self):
        rule = (3, "Option --restore-timeout only compatible with --restore")
        self.assert_refused(*rule, "--restore-timeout", "600")
        self.assert_refused(*rule, "--restore-timeout", "0", "--list-devices")
        self.assert_refused(*rule, "--restore-timeout", "600", "--restore-plist", "o.plist",
                            "--ecid", ECID)

    def test_erase_is_looked_at_before_restore_timeout(self):
        self.assert_refused(3, "Option --erase only compatible with --restore",
                            "--restore-timeout", "600", "--erase")

    def test_empty_restore_path(self):
        self.assert_refused(3, "Missing restore IPSW path", "--restore", "", "--ecid", ECID)
        self.assert_refused(3, "Missing restore IPSW path", "--restore", "", "--ecid", ECID,
                            "--erase", "--restore-timeout", "600", "--enter-restore-mode")

    def test_no_command(self):
        self.assert_refused(*NO_COMMAND)
        self.assert_refused(*NO_COMMAND, "--ecid", ECID)
        self.assert_refused(*NO_COMMAND, "--enter-restore-mode", "--ecid", ECID)
        self.assert_refused(*NO_COMMAND, "--no-cleanup", "--debug")

    def test_refusal_comes_after_the_library_is_warmed_up(self):
        run = self.assert_fails(*NO_COMMAND, scenario={})
        self.assertEqual(["AMDeviceNotificationSubscribe", "AMDeviceNotificationUnsubscribe"],
                         run.call_names)


class FirstCommandWins(ToolTest):
    ORDER = (
        ("--list-devices",),
        ("--device-info",),
        ("--exit-recovery",),
        ("--no-exit-recovery",),
        ("--restore", "x.ipsw"),
        ("--restore-plist", "x.plist"),
    )

    def test_each_pair(self):
        # Without an ECID the rule that fails names the command that was chosen.
        for first in range(1, len(self.ORDER)):
            for second in range(first + 1, len(self.ORDER)):
                with self.subTest(self.ORDER[first][0], other=self.ORDER[second][0]):
                    self.assert_fails(3, f"Option {self.ORDER[first][0]} requires --ecid",
                                      *self.ORDER[second], *self.ORDER[first], scenario={})

    def test_list_devices_is_the_first(self):
        others = [word for command in self.ORDER[1:] for word in command]
        run = self.run_tool(*others, "--list-devices", "--detect-timeout", "0", scenario={},
                            status=0)
        self.assertEqual(["DeviceList"], [each.type for each in run.documents])

    def test_device_info_with_restore(self):
        run = self.run_tool("--restore", "", "--device-info", "--erase", "--restore-timeout", "0",
                            "--ecid", ECID, scenario={"Devices": [device()]}, status=0)
        self.assertEqual(["DeviceInfo"], [each.type for each in run.documents])
        self.assertNotIn("AMRestorableDeviceRestore", run.call_names)


class AcceptedTogether(ToolTest):
    def test_restore_with_all_that_goes_with_it(self):
        scenario = {"Devices": [device(RestoreReports=[COMPLETE])]}
        run = self.run_tool("--restore", "x.ipsw", "--restore-timeout", "600", "--erase",
                            "--enter-restore-mode", "--no-cleanup", "--detect-timeout", "30",
                            "--ecid", ECID, scenario=scenario, status=0)
        self.assertEqual(["RestoreStatus"], [each.type for each in run.documents])

    def test_enter_restore_mode_changes_no_other_command(self):
        run = self.run_tool("--device-info", "--enter-restore-mode", "--ecid", ECID,
                            scenario={"Devices": [device()]}, status=0)
        self.assertEqual(["DeviceInfo"], [each.type for each in run.documents])

    def test_ecid_of_either_letter_case(self):
        scenario = {"Devices": [device("00ABCDEF12345678")]}
        for text in ("00abcdef12345678", "00AbCdEf12345678", "00ABCDEF12345678"):
            run = self.run_tool("--device-info", "--ecid", text, scenario=scenario, status=0)
            self.assertEqual("00ABCDEF12345678", run.documents[0].value["ECID"])


if __name__ == "__main__":
    unittest.main()
