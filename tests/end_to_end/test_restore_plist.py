"""Restores whose options come from a property-list file."""

import datetime
import plistlib
import unittest

from harness import COMPLETE, ECID, ToolTest, device, report, side_by_side

load_tests = side_by_side

OPTIONS = {
    "AuthInstallRestoreBehavior": "Erase",
    "RestoreBundlePath": "C:\\Firmware\\größe 漢字 😀.ipsw",
    "empty": "",
    "markup": "<a & b>",
    "integers": [0, -1, 12, 13, 2**31, 2**63 - 1, -(2**63)],
    "reals": [0.5, 0.1, -1e100],
    "booleans": [True, False],
    "date": datetime.datetime(2026, 2, 28, 12, 30, 15),
    "data": bytes(range(256)),
    "nested": {"array": [[], {}, [{"deep": [1, "two", b"3"]}]], "empty": {}},
}


class RestorePlist(ToolTest):
    def write_options(self, content, name="options.plist"):
        path = self.new_folder() / name
        path.write_bytes(content)
        return path

    def restore_with(self, path, *arguments, reports=(COMPLETE,), **how):
        scenario = {"Devices": [device(RestoreReports=list(reports))], "TimeScale": 0}
        return self.run_tool(
            "--restore-plist", str(path), "--ecid", ECID, *arguments, scenario=scenario, **how)

    def assert_refused(self, path, reason):
        run = self.assert_fails(
            8, f"Cannot open file '{path}' - {reason}", "--restore-plist", str(path),
            "--ecid", ECID, scenario={"Devices": [device()]})
        self.assertNotIn("AMRestorableDeviceRegisterForNotifications", run.call_names)
        return run

    def assert_same_types(self, expected, found):
        self.assertIs(type(expected), type(found), (expected, found))
        if isinstance(expected, dict):
            for key in expected:
                self.assert_same_types(expected[key], found[key])
        elif isinstance(expected, list):
            for pair in zip(expected, found):
                self.assert_same_types(*pair)

    def test_options_arrive_unchanged(self):
        for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
            with self.subTest(form):
                path = self.write_options(plistlib.dumps(OPTIONS, fmt=form))
                run = self.restore_with(path, status=0)
                self.assertEqual(OPTIONS, run.options)
                self.assert_same_types(OPTIONS, run.options)
                self.assertEqual(
                    [{"Operation": 0, "Progress": 100, "Status": "Successful"}],
                    run.values("RestoreStatus"))

    def test_text_form_is_accepted(self):
        path = self.write_options(b'{ RestoreBundlePath = "a b.ipsw"; list = (x, "y z"); }')
        run = self.restore_with(path, status=0)
        self.assertEqual({"RestoreBundlePath": "a b.ipsw", "list": ["x", "y z"]}, run.options)

    def test_nothing_is_added(self):
        run = self.restore_with(self.write_options(plistlib.dumps({})), status=0)
        self.assertEqual({}, run.options)
        self.assertNotIn("AMRestoreCreateDefaultOptions", run.call_names)

    def test_name_with_other_letters(self):
        path = self.write_options(plistlib.dumps(OPTIONS), "größe 漢字 😀.plist")
        self.assertEqual(OPTIONS, self.restore_with(path, status=0).options)

    def test_long_path(self):
        folder = self.new_folder()
        for _ in range(5):
            folder = folder / ("x" * 100)
        folder.mkdir(parents=True)
        path = folder / "options.plist"
        path.write_bytes(plistlib.dumps(OPTIONS))
        self.assertEqual(OPTIONS, self.restore_with(path, status=0).options)

    def test_enter_restore_mode_ends_with_booting(self):
        path = self.write_options(plistlib.dumps(OPTIONS))
        reports = [report(8, 10), report(9, 20), {**report(11, 30), "After": 1000}]
        scenario = {"Devices": [device(RestoreReports=reports)]}
        run = self.run_tool("--restore-plist", str(path), "--enter-restore-mode", "--ecid", ECID,
                            scenario=scenario, status=0)
        self.assertEqual([8, 9], [each["Operation"] for each in run.values("RestoreStatus")])

    def test_without_enter_restore_mode_booting_is_a_step(self):
        path = self.write_options(plistlib.dumps(OPTIONS))
        run = self.restore_with(path, reports=[report(9, 20), COMPLETE], status=0)
        self.assertEqual([9, 0], [each["Operation"] for each in run.values("RestoreStatus")])

    def test_name_is_shown_as_typed(self):
        path = self.write_options(b"", "empty größe 漢字 😀 {} %s.plist")
        self.assert_refused(path, "Empty file")

    def assert_not_opened(self, path):
        run = self.run_tool("--restore-plist", str(path), "--ecid", ECID, status=8,
                            scenario={"Devices": [device()]})
        (document,) = run.documents
        self.assertEqual(8, document.value["Code"])
        self.assertEqual("Read error", document.value["Description"])
        reason = document.value["FailureReason"]
        start = f"Cannot open file '{path}' - when opening file '{path}' for reading: "
        self.assertTrue(reason.startswith(start), reason)
        self.assertGreater(len(reason), len(start) + 5, reason)
        return reason[len(start):]

    def test_missing_file(self):
        for name in ("missing.plist", "missing größe 漢字.plist"):
            text = self.assert_not_opened(self.new_folder() / name)
            self.assertTrue(text.endswith(" [system:2]"), text)  # no such file

    def test_folder(self):
        self.assert_not_opened(self.new_folder())

    def test_empty_name(self):
        self.assert_not_opened("")

    def test_ecid_comes_before_the_file(self):
        self.assert_fails(3, "Option --restore-plist requires --ecid",
                          "--restore-plist", "missing.plist")

    def test_device_that_never_comes(self):
        path = self.write_options(plistlib.dumps(OPTIONS))
        self.assert_fails(4, f"Failed to find device with ecid {ECID} after 0 seconds",
                          "--restore-plist", str(path), "--ecid", ECID, "--detect-timeout", "0",
                          scenario={})


if __name__ == "__main__":
    unittest.main()
