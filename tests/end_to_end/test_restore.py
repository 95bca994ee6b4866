"""--restore from its start to its end, with the steps that the simulator makes up."""

import plistlib
import unittest

from harness import (COMPLETE, ECID, REGISTER, UNREGISTER, WARM_UP, ToolTest, arrival, device,
                     report, side_by_side)

load_tests = side_by_side

BUILT_IN_RECOVERY_DEVICE = "001E2D4C0A91C026"
BOOTING = 9


class WholeRestore(ToolTest):
    def assert_restored(self, run):
        self.assertEqual({"RestoreStatus"}, {each.type for each in run.documents})
        reports = run.values("RestoreStatus")
        self.assertGreater(len(reports), 15)
        progress = [each["Progress"] for each in reports]
        self.assertEqual(sorted(progress), progress)
        self.assertIn(BOOTING, [each["Operation"] for each in reports])
        self.assertEqual({"Status": "Successful", "Operation": 0, "Progress": 100}, reports[-1])
        for each in reports[:-1]:
            self.assertEqual({"Status", "Operation", "Progress", "QN_OperationName"}, set(each))
            self.assertNotEqual("Unknown", each["QN_OperationName"])
        booting = next(each for each in reports if each["Operation"] == BOOTING)
        self.assertEqual("Booting", booting["QN_OperationName"])

    def test_archive(self):
        bundle = str(self.make_bundle())
        self.assert_restored(self.restore(None, "--restore", bundle))
        self.assert_restored(self.restore(None, "--restore", bundle, "--erase"))

    def test_folder(self):
        folder = self.new_folder() / "bundle folder"
        folder.mkdir()
        (folder / "BuildManifest.plist").write_bytes(plistlib.dumps({}))
        self.assert_restored(self.restore(None, "--restore", str(folder)))

    def test_built_in_scenario_at_its_own_speed(self):
        process = self.start("--restore", str(self.make_bundle()),
                             "--ecid", BUILT_IN_RECOVERY_DEVICE)
        first = process.next_document()
        self.assertTrue(process.running())  # documents come as the restore goes on
        self.assertEqual("RestoreStatus", first.type)
        run = self.finish(process, status=0)
        self.assert_restored(run)
        self.assertEqual(first, run.documents[0])
        # The device comes back in restore mode on the way.
        self.assertIn(f"AMRestorableDeviceGetState device={BUILT_IN_RECOVERY_DEVICE} -> 3",
                      run.calls)

    def test_calls(self):
        run = self.restore([COMPLETE])
        self.assertEqual(
            [
                *WARM_UP,
                "AMRestoreCreateDefaultOptions -> set",
                REGISTER,
                *arrival(),
                f"AMRestorableDeviceRestore device={ECID} context=set -> void",
                UNREGISTER,
            ],
            run.calls,
        )

    def test_each_state(self):
        for state in ("Unknown", "DFU", "Recovery", "RestoreOS", 7):
            with self.subTest(state):
                run = self.run_tool("--restore", "x.ipsw", "--ecid", ECID, status=0, scenario={
                    "Devices": [device(State=state, RestoreReports=[COMPLETE])]})
                self.assertEqual([COMPLETE["Status"]], run.values("RestoreStatus"))

    def test_booted_device_is_not_restored(self):
        run = self.assert_fails(4, f"Failed to find device with ecid {ECID} after 1 seconds",
                                "--restore", "x.ipsw", "--ecid", ECID, "--detect-timeout", "1",
                                scenario={"Devices": [device(State="BootedOS")]})
        self.assertNotIn("AMRestorableDeviceRestore", run.call_names)

    def test_late_device(self):
        run = self.run_tool(
            "--restore", "x.ipsw", "--ecid", ECID, "--detect-timeout", "50", status=0,
            scenario={"Devices": [device(ConnectAfter=1, RestoreReports=[COMPLETE])]})
        self.assertEqual([COMPLETE["Status"]], run.values("RestoreStatus"))


class FailingRestore(ToolTest):
    """A restore that fails never reports its completion, so the timeout ends the run."""

    def assert_restore_fails(self, path):
        run = self.restore(None, "--restore", str(path), "--restore-timeout", "2")
        *steps, failure = run.values("RestoreStatus")
        self.assertGreater(len(steps), 0)
        self.assertEqual("Failed", failure["Status"])
        self.assertNotEqual(0, failure["Operation"])
        error = failure["Error"]
        self.assertLessEqual({"Domain", "Code", "Description"}, set(error))
        self.assertGreater(error["Code"], 0)
        self.assertEqual("InternalError", run.documents[-1].type)
        self.assert_error(run.documents[-1], 7,
                          "Aborting, restore did not complete in 2 seconds")
        return error

    def test_missing_bundle(self):
        self.assert_restore_fails(self.new_folder() / "missing.ipsw")

    def test_bundle_that_is_no_archive(self):
        path = self.new_folder() / "text.ipsw"
        path.write_text("not an archive")
        self.assert_restore_fails(path)

    def test_folder_without_manifest(self):
        self.assert_restore_fails(self.new_folder())

    def test_no_default_options(self):
        run = self.assert_fails(
            1, "AMRestoreCreateDefaultOptions failed", "--restore", "x.ipsw", "--ecid", ECID,
            scenario={"Devices": [device()], "Failures": {"CreateDefaultOptions": True}})
        self.assertEqual("AMRestoreCreateDefaultOptions -> null", run.calls[-1])


class EnterRestoreMode(ToolTest):
    def operations(self, run):
        return [each["Operation"] for each in run.values("RestoreStatus")]

    def test_ends_when_the_device_boots(self):
        run = self.restore(None, "--restore", str(self.make_bundle()), "--enter-restore-mode",
                           time_scale=1)
        operations = self.operations(run)
        self.assertIn(BOOTING, operations)
        self.assertNotIn(0, operations)
        self.assertEqual(UNREGISTER, run.calls[-1])

    def test_at_whatever_progress(self):
        reports = [report(5, 50), report(BOOTING, 0), report(7, 60, After=1000)]
        for progress in (0, 100, -1):
            reports[1] = report(BOOTING, progress)
            run = self.restore(reports, "--enter-restore-mode", time_scale=1)
            self.assertEqual([5, BOOTING], self.operations(run))

    def test_other_operations_of_the_same_text_do_not_end_it(self):
        reports = [report(204, 1), report(205, 2), report(206, 3), report(BOOTING, 4)]
        for each in reports[1:]:
            each["After"] = 0.2
        run = self.restore(reports, "--enter-restore-mode", time_scale=1)
        self.assertEqual([204, 205, 206, BOOTING], self.operations(run))

    def test_ends_with_a_complete_restore_too(self):
        run = self.restore([report(5, 50), COMPLETE], "--enter-restore-mode")
        self.assertEqual([5, 0], self.operations(run))

    def test_without_it_booting_ends_nothing(self):
        reports = [report(BOOTING, 100), report(5, 1, After=1), {**COMPLETE, "After": 0.2}]
        run = self.restore(reports, time_scale=1)
        self.assertEqual([BOOTING, 5, 0], self.operations(run))


class TimeOut(ToolTest):
    def assert_times_out(self, seconds, reports, limit=60):
        run = self.restore(reports, "--restore-timeout", str(seconds), time_scale=1, limit=limit)
        self.assertGreaterEqual(run.seconds, seconds)
        self.assertLess(run.seconds, seconds + 20)
        self.assert_error(run.documents[-1], 7,
                          f"Aborting, restore did not complete in {seconds} seconds")
        self.assertEqual(UNREGISTER, run.calls[-1])
        return run

    def test_restore_that_reports_nothing(self):
        for seconds in (0, 1):
            run = self.assert_times_out(seconds, [])
            self.assertEqual(1, len(run.documents))

    def test_restore_that_is_not_complete(self):
        run = self.assert_times_out(2, [report(0, 99), report(0, 101), report(5, 100)])
        self.assertEqual([99, 101, 100],
                         [each["Progress"] for each in run.values("RestoreStatus")])

    def test_reports_that_come_later(self):
        run = self.assert_times_out(1, [report(5, 1), report(6, 2, After=1000), COMPLETE])
        self.assertEqual([5], [each["Operation"] for each in run.values("RestoreStatus")])

    def test_restore_in_time(self):
        run = self.restore([report(5, 1), {**COMPLETE, "After": 1}], "--restore-timeout", "50",
                           time_scale=1)
        self.assertEqual(["RestoreStatus"] * 2, [each.type for each in run.documents])
        self.assertGreaterEqual(run.seconds, 1)


class AfterCompletion(ToolTest):
    """What a restore reports after its completion may or may not be printed; it harms nothing."""

    def assert_completes(self, after):
        for _ in range(3):
            run = self.restore([report(5, 1), COMPLETE, *after])
            values = run.values("RestoreStatus")
            self.assertEqual(len(run.documents), len(values))
            self.assertEqual(5, values[0]["Operation"])
            self.assertEqual(COMPLETE["Status"], values[1])

    def test_second_completion(self):
        self.assert_completes([COMPLETE, COMPLETE])

    def test_further_reports(self):
        self.assert_completes([report(5, 2, Repeat=5000), {**COMPLETE, "Repeat": 100}])


if __name__ == "__main__":
    unittest.main()
