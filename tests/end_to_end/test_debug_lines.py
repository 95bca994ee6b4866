"""--debug: the lines on standard error, whole and in their order."""

import unittest

from harness import COMPLETE, ECID, ToolTest, device, report, side_by_side

load_tests = side_by_side

POINTER = "0x[0-9a-f]+"
OTHER = "00000000000000FF"

INITIALIZING = "device_notifier_state: initializing"
REGISTER = r"waitForCompletion: AMRestorableDeviceRegisterForNotifications\(\)"
UNREGISTER = r"waitForCompletion: AMRestorableDeviceUnregisterForNotifications\(\)"
CALLBACK = "deviceNotificationCallback"


def adding(ecid):
    return rf"{CALLBACK}: Adding '{ecid}' \({POINTER}\)"


FOUND_LATE = [
    f"waitForDevice: Looking for device '{ECID}'",
    f"waitForDevice: Waiting for device '{ECID}'",
    adding(ECID),
]
# A device that comes when the tool is waiting for it already.
LATE = {"ConnectAfter": 1}


class DebugLines(ToolTest):
    def assert_debug(self, patterns, *arguments, status=0, scenario=None):
        run = self.run_tool("--debug", *arguments, scenario=scenario or {}, status=status)
        self.assert_lines([INITIALIZING, *patterns], run.stderr_lines)
        return run

    def on_device(self, patterns, *arguments, status=0, **properties):
        """A command on a device that comes late."""
        return self.assert_debug([REGISTER, *FOUND_LATE, *patterns], *arguments, "--ecid", ECID,
                                 "--detect-timeout", "50", status=status,
                                 scenario={"Devices": [device(**LATE, **properties)]})


class Listing(DebugLines):
    def assert_list_debug(self, patterns, **scenario):
        self.assert_debug([REGISTER, *patterns, UNREGISTER], "--list-devices",
                          "--detect-timeout", "1", scenario=scenario)

    def test_no_device(self):
        self.assert_list_debug([])

    def test_devices_of_all_kinds(self):
        self.assert_list_debug(
            [
                adding(ECID),
                f"{CALLBACK}: Ignoring booted device",
                rf"{CALLBACK}: Ignoring AMRestorableDevice with invalid ECID"
                rf" \({POINTER} type connected\)",
                adding(OTHER),
            ],
            Devices=[device(), device("2", State="BootedOS"), device(0), device(OTHER)])

    def test_two_arrivals_at_different_times(self):
        self.assert_list_debug([adding(OTHER), adding(ECID)],
                               Devices=[device(ConnectAfter=0.3), device(OTHER)])

    def test_departure(self):
        self.assert_list_debug([adding(ECID), f"{CALLBACK}: Removing '{ECID}'"],
                               Devices=[device(DisconnectAfter=0.2)])

    def test_departures_that_are_ignored(self):
        self.assert_list_debug(
            [
                f"{CALLBACK}: Ignoring booted device",
                rf"{CALLBACK}: Ignoring AMRestorableDevice with invalid ECID"
                rf" \({POINTER} type connected\)",
                f"{CALLBACK}: Ignoring booted device",
                rf"{CALLBACK}: Ignoring AMRestorableDevice with invalid ECID"
                rf" \({POINTER} type disconnected\)",
            ],
            Devices=[device("2", State="BootedOS", DisconnectAfter=0.1),
                     device(0, DisconnectAfter=0.2)])

    def test_odd_notifications(self):
        self.assert_list_debug(
            [
                adding(ECID),
                f"{CALLBACK}: Connected AMRestorableDevice, but '{ECID}' already present",
                adding(ECID),
                f"{CALLBACK}: Removing '{ECID}'",
                f"{CALLBACK}: Disconnected AMRestorableDevice, but '{ECID}' not present",
                f"{CALLBACK}: Removing '{ECID}'",
                f"{CALLBACK}: called with null device",
                f"{CALLBACK}: called with invalid notification type"
                " <invalid notification type 2>",
                f"{CALLBACK}: called with invalid notification type"
                " <invalid notification type -1>",
            ],
            Devices=[device()],
            Notifications=[
                {"ECID": ECID, "Type": 0, "After": 0.1},
                {"ECID": ECID, "Type": 1, "After": 0.1},
                {"ECID": ECID, "Type": 1, "After": 0.1},
                {"Type": 0, "After": 0.1},
                {"ECID": ECID, "Type": 2, "After": 0.1},
                {"ECID": ECID, "Type": -1, "After": 0.1},
            ])

    def test_odd_type_of_an_invalid_device(self):
        self.assert_list_debug(
            [
                rf"{CALLBACK}: Ignoring AMRestorableDevice with invalid ECID"
                rf" \({POINTER} type {kind}\)"
                for kind in ("connected", "<invalid notification type 9>")
            ],
            Devices=[device(0)], Notifications=[{"ECID": 0, "Type": 9, "After": 0.1}])


class DeviceInfo(DebugLines):
    def test_late_device(self):
        self.on_device([UNREGISTER], "--device-info")

    def test_no_device(self):
        self.assert_debug([REGISTER, *FOUND_LATE[:2]], "--device-info", "--ecid", ECID,
                          "--detect-timeout", "0", status=4)

    def test_ecid_0(self):
        self.assert_debug([
            REGISTER,
            r"waitForDevice: Looking for device '\?{16}'",
            r"waitForDevice: Waiting for device '\?{16}'",
        ], "--device-info", "--ecid", "0" * 16, "--detect-timeout", "0", status=4)

    def test_device_that_comes_at_once(self):
        # Whether it is there before the tool looks for it is open; the rest is not.
        run = self.run_tool("--debug", "--device-info", "--ecid", ECID, status=0,
                            scenario={"Devices": [device()]})
        waiting = f"waitForDevice: Waiting for device '{ECID}'"
        lines = [line for line in run.stderr_lines if line != waiting]
        callback = [line for line in lines if line.startswith(CALLBACK)]
        self.assert_lines([adding(ECID)], callback)
        self.assert_lines(
            [INITIALIZING, REGISTER, f"waitForDevice: Looking for device '{ECID}'", UNREGISTER],
            [line for line in lines if line not in callback])


class Recovery(DebugLines):
    FUNCTION = "operateOnRecoveryDevice"

    def test_exit_recovery(self):
        run = self.on_device(
            [rf"{self.FUNCTION}: AMRecoveryModeDeviceSetAutoBoot\(true\)",
             rf"{self.FUNCTION}: AMRecoveryModeDeviceReboot\(\)", UNREGISTER], "--exit-recovery")
        self.assertEqual([True], run.values("CommandSuccess"))

    def test_no_exit_recovery(self):
        self.on_device(
            [rf"{self.FUNCTION}: AMRecoveryModeDeviceSetAutoBoot\(false\)", UNREGISTER],
            "--no-exit-recovery")

    def test_failing_commands(self):
        self.on_device([rf"{self.FUNCTION}: AMRecoveryModeDeviceSetAutoBoot\(true\)"],
                       "--exit-recovery", status=6, SetAutoBootError=1)
        self.on_device([rf"{self.FUNCTION}: AMRecoveryModeDeviceSetAutoBoot\(true\)",
                        rf"{self.FUNCTION}: AMRecoveryModeDeviceReboot\(\)"],
                       "--exit-recovery", status=6, RebootError=1)
        self.on_device([], "--exit-recovery", status=5, State="DFU")


class Restore(DebugLines):
    FUNCTION = "restoreCallback"

    def status(self, text, operation, progress):
        return f"{self.FUNCTION}: status {text}, operation {operation}, progress {progress}"

    def complete(self):
        return [self.status("Successful", "Unknown operation 0", 100),
                f"{self.FUNCTION}: Notifying restore complete"]

    def test_to_the_end(self):
        self.on_device(
            [
                self.status("Restoring", "Booting", 15),
                self.status("", "Unknown operation 150", -1),
                self.status("Größe", "Unknown operation 0", 99),
                self.status("x", "Unknown operation -2", 2**63 - 1),
                f"{self.FUNCTION}: Ignoring invalid statusDict",
                f"{self.FUNCTION}: Invalid argument",
                *self.complete(),
                UNREGISTER,
            ],
            "--restore", "x.ipsw", RestoreReports=[
                report(9, 15), report(150, -1, ""), report(0, 99, "Größe"),
                report(-2, 2**63 - 1, "x"), {"Status": {"Status": "x"}},
                {"Status": {"$type": "null"}}, COMPLETE])

    def test_enter_restore_mode(self):
        self.on_device(
            [
                self.status("Restoring", "Connecting to device", 1),
                self.status("Restoring", "Booting", 15),
                f"{self.FUNCTION}: Notifying enter restore mode complete",
                UNREGISTER,
            ],
            "--restore", "x.ipsw", "--enter-restore-mode",
            RestoreReports=[report(3, 1), report(9, 15)])

    def test_time_out(self):
        run = self.on_device([UNREGISTER], "--restore", "x.ipsw", "--restore-timeout", "0",
                             RestoreReports=[])
        self.assertEqual(7, run.documents[0].value["Code"])

    def test_failing_default_options(self):
        self.assert_debug([], "--restore", "x.ipsw", "--ecid", ECID, status=1,
                          scenario={"Failures": {"CreateDefaultOptions": True}})


class OtherRuns(DebugLines):
    def test_rules(self):
        self.assert_debug([], status=3)
        self.assert_debug([], "--device-info", status=3)
        self.assert_debug([], "--device-info", "--ecid", "zz", status=2)

    def test_failing_registration(self):
        self.assert_debug([REGISTER], "--list-devices", status=5, scenario={
            "Failures": {"RegisterForNotifications": {"Domain": "D", "Code": 5}}})

    def test_no_lines_without_the_option(self):
        # The harness checks that standard error of such a run is silent.
        run = self.restore([report(9, 15), COMPLETE])
        self.assertEqual(b"", run.stderr)


class LogFile(DebugLines):
    FUNCTION = "device_notifier_state"

    def test_file(self):
        for name in ("log.txt", "ein Größe 漢字 😀.txt"):
            path = str(self.new_folder() / name)
            run = self.assert_debug(
                [rf"{self.FUNCTION}: AMRestoreEnableFileLogging\(.+\)", REGISTER, UNREGISTER],
                "--list-devices", "--detect-timeout", "0", "--amr-logfile", path)
            self.assertEqual(
                f"{self.FUNCTION}: AMRestoreEnableFileLogging({path})", run.stderr_lines[1])
            self.assertEqual(f'AMRestoreEnableFileLogging path="{path}" -> 0', run.calls[2])

    def test_failure_is_a_debug_line_only(self):
        for error, text in ((12, "Unable to open file"), (65, "Unknown"), (-5, "Unknown"),
                            (3600, "HTTP internal server error")):
            with self.subTest(error):
                path = str(self.new_folder() / "log.txt")
                run = self.assert_debug(
                    [
                        rf"{self.FUNCTION}: AMRestoreEnableFileLogging\(.+\)",
                        rf"{self.FUNCTION}: AMRestoreEnableFileLogging failed \({error}: .*"
                        rf'"{text}".*\)',
                        REGISTER,
                        UNREGISTER,
                    ],
                    "--list-devices", "--detect-timeout", "0", "--amr-logfile", path,
                    scenario={"Failures": {"EnableFileLogging": error}})
                self.assertEqual([[]], run.values("DeviceList"))

    def test_restore_writes_its_steps(self):
        path = self.new_folder() / "log.txt"
        self.restore([report(5, 1), COMPLETE], "--amr-logfile", str(path))
        self.assertIn(ECID, path.read_text())


if __name__ == "__main__":
    unittest.main()
