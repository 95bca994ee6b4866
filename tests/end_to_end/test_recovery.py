"""--exit-recovery and --no-exit-recovery."""

import unittest

from harness import ECID, REGISTER, UNREGISTER, WARM_UP, ToolTest, arrival, device, side_by_side

load_tests = side_by_side

SET_AUTO_BOOT, REBOOT = "AMRecoveryModeDeviceSetAutoBoot", "AMRecoveryModeDeviceReboot"
COMMANDS = ("exit-recovery", "no-exit-recovery")
# What a reboot brings about comes this much later than it would: after the end of the run.
SLOW = {"TimeScale": 1000}


class Recovery(ToolTest):
    def command(self, name, **properties):
        return self.run_tool(f"--{name}", "--ecid", ECID,
                             scenario={"Devices": [device(**properties)], **SLOW})

    def assert_succeeds(self, name, calls, **properties):
        run = self.command(name, **properties)
        self.assertEqual((0, ["CommandSuccess"], [True]), (
            run.status, [each.type for each in run.documents], run.values("CommandSuccess")))
        self.assertEqual(
            [
                *WARM_UP,
                REGISTER,
                *arrival(),
                f"AMRestorableDeviceGetState device={ECID} -> 2",
                f"AMRestorableDeviceCopyRecoveryModeDevice device={ECID} -> {ECID}",
                *calls,
                UNREGISTER,
            ],
            run.calls,
        )

    def assert_command_fails(self, code, reason, name, **properties):
        run = self.command(name, **properties)
        self.assertEqual(code, run.status)
        self.assertEqual(1, len(run.documents))
        self.assert_error(run.documents[0], code, reason)
        self.assertNotIn("AMRestorableDeviceUnregisterForNotifications", run.call_names)
        return run

    def test_exit_recovery(self):
        self.assert_succeeds("exit-recovery", [
            f"{SET_AUTO_BOOT} device={ECID} autoBoot=true -> 0",
            f"{REBOOT} device={ECID} -> 0",
        ])

    def test_no_exit_recovery_does_not_reboot(self):
        self.assert_succeeds("no-exit-recovery", [
            f"{SET_AUTO_BOOT} device={ECID} autoBoot=false -> 0",
        ], RebootError=5)

    def test_other_states(self):
        for state, shown in (
            ("Unknown", "Unknown"),
            ("DFU", "DFU"),
            ("RestoreOS", "RestoreOS"),
            (7, "<invalid device state 7>"),
            (-1, "<invalid device state -1>"),
            (2**31 - 1, "<invalid device state 2147483647>"),
        ):
            for name in COMMANDS:
                with self.subTest(state, command=name):
                    run = self.assert_command_fails(
                        5, f"Device in state {shown} not valid for {name}", name, State=state,
                        RecoveryModeDevice=True)
                    self.assertNotIn("AMRestorableDeviceCopyRecoveryModeDevice", run.call_names)

    def test_booted_device_is_not_found(self):
        for name in COMMANDS:
            self.assert_fails(4, f"Failed to find device with ecid {ECID} after 1 seconds",
                              f"--{name}", "--ecid", ECID, "--detect-timeout", "1",
                              scenario={"Devices": [device(State="BootedOS")]})

    def test_no_recovery_mode_device(self):
        for name in COMMANDS:
            run = self.assert_command_fails(
                5, "Recovery device not available for this Restorable device", name,
                RecoveryModeDevice=False)
            self.assertNotIn(SET_AUTO_BOOT, run.call_names)

    ERRORS = {
        1: "Bad argument",
        65: "Unknown error 65",
        93: "Error populating Apple internal diags",
        94: "Unknown error 94",
        1013: "Unrecognized bbupdater error",
        2006: "USB Device not responding",
        2102: "Not enough space to install recovery OS ",
        3014: "Internal (please file a radar)",
        3600: "HTTP internal server error",
        -1: "Unknown error -1",
        2**31 - 1: "Unknown error 2147483647",
        -(2**31): "Unknown error -2147483648",
    }

    def test_auto_boot_that_fails(self):
        for error, text in self.ERRORS.items():
            with self.subTest(error):
                run = self.assert_command_fails(6, f"SetAutoBoot command failed ({text})",
                                                "exit-recovery", SetAutoBootError=error)
                self.assertEqual(f"{SET_AUTO_BOOT} device={ECID} autoBoot=true -> {error}",
                                 run.calls[-1])

    def test_auto_boot_that_fails_to_be_cleared(self):
        run = self.assert_command_fails(6, "SetAutoBoot command failed (IO error)",
                                        "no-exit-recovery", SetAutoBootError=13)
        self.assertEqual(f"{SET_AUTO_BOOT} device={ECID} autoBoot=false -> 13", run.calls[-1])

    def test_reboot_that_fails(self):
        for error in (13, 65, -2):
            text = {13: "IO error"}.get(error, f"Unknown error {error}")
            with self.subTest(error):
                run = self.assert_command_fails(6, f"Reboot command failed ({text})",
                                                "exit-recovery", RebootError=error)
                self.assertEqual(
                    [f"{SET_AUTO_BOOT} device={ECID} autoBoot=true -> 0",
                     f"{REBOOT} device={ECID} -> {error}"], run.calls[-2:])

    def test_auto_boot_and_reboot_that_would_fail(self):
        run = self.assert_command_fails(6, "SetAutoBoot command failed (File error)",
                                        "exit-recovery", SetAutoBootError=11, RebootError=12)
        self.assertNotIn(REBOOT, run.call_names)

    def test_device_that_leaves_at_once(self):
        # The reboot's notifications arrive while the run ends.
        for _ in range(5):
            run = self.run_tool("--exit-recovery", "--ecid", ECID,
                                scenario={"Devices": [device()], "TimeScale": 0}, status=0)
            self.assertEqual([True], run.values("CommandSuccess"))


if __name__ == "__main__":
    unittest.main()
