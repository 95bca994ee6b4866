"""A world that several runs of the tool share."""

import os
import pathlib
import plistlib
import random
import time
import unittest

from harness import ECID, RUNNER, TIME_LIMIT, ToolTest, device, side_by_side

load_tests = side_by_side

RECOVERY, RESTORE_OS, BOOTED_OS = 2, 3, 4
WAITING_FOR_NAND = 28  # the first report after the device has come back in RestoreOS
KILLS = max(1, 160 * int(os.environ.get("QNRESCUE_STRESS_PERCENT", "5")) // 100)


class WorldTest(ToolTest):
    def setUp(self):
        self.world = self.new_folder() / "world.plist"
        self.scenario = {"Devices": [device(AfterInterruption=6)]}

    def start_in_world(self, *arguments, runner=RUNNER):
        return self.start(*arguments, scenario=self.scenario, runner=runner,
                          environment={"MOBILEDEVICE_SIMULATOR_WORLD": str(self.world)})

    def run_in_world(self, *arguments):
        return self.finish(self.start_in_world(*arguments), status=0)

    def start_restore(self, ecid=ECID):
        return self.start_in_world("--restore", str(self.make_bundle()), "--ecid", ecid)

    def start_list(self, seconds):
        return self.start_in_world("--list-devices", "--detect-timeout", str(seconds))

    def wait_for_operation(self, process, operation):
        while process.next_document().value["Operation"] != operation:
            pass

    def devices_in_world(self):
        return plistlib.loads(self.world.read_bytes())["Devices"]

    def wait_for_arrival(self, process, state):
        process.wait_for_text("trace", f"AMRestorableDeviceGetState device={ECID} -> {state}\n")

    def listed(self, run):
        """The states in which the device was met, and the list at the end."""
        states = [int(call.split("-> ")[1]) for call in run.calls
                  if call.startswith("AMRestorableDeviceGetState ")]
        return states, run.values("DeviceList")[0]


class Shared(WorldTest):
    def test_restore_that_another_process_sees(self):
        watching = self.start_list(20)
        self.wait_for_arrival(watching, RECOVERY)
        self.assertNotIn("Restore", self.devices_in_world()[0])
        restoring = self.start_restore()
        self.wait_for_arrival(watching, RESTORE_OS)
        self.assertIn("Restore", self.devices_in_world()[0])
        self.assertTrue(restoring.running())
        self.finish(restoring, status=0)
        self.wait_for_arrival(watching, BOOTED_OS)
        self.assertNotIn("Restore", self.devices_in_world()[0])
        self.assertEqual(([BOOTED_OS], []), self.listed(self.finish(self.start_list(1), status=0)))
        self.assertEqual([], self.listed(self.finish(watching, status=0))[1])

    def test_restore_whose_process_is_killed(self):
        restoring = self.start_restore()
        self.wait_for_operation(restoring, WAITING_FOR_NAND)
        restoring.kill()
        killed = time.monotonic()
        watching = self.start_list(15)
        self.wait_for_arrival(watching, RESTORE_OS)
        self.wait_for_arrival(watching, RECOVERY)
        self.assertGreater(time.monotonic() - killed, 4)  # 6, less the time since a sign of life
        self.assertNotIn("Restore", self.devices_in_world()[0])
        self.assertEqual([ECID], self.listed(self.finish(watching, status=0))[1])
        self.assertEqual(([RECOVERY], [ECID]),
                         self.listed(self.finish(self.start_list(1), status=0)))

    def test_restore_by_a_process_that_ends_before_it(self):
        restoring = self.start_in_world("--restore", str(self.make_bundle()), "--ecid", ECID,
                                        "--restore-timeout", "1")
        run = self.finish(restoring)
        self.assertNotIn("Successful", [each["Status"] for each in run.values("RestoreStatus")])
        self.assertIn("Restore", self.devices_in_world()[0])
        watching = self.run_in_world("--list-devices", "--detect-timeout", "10")
        self.assertEqual([ECID], self.listed(watching)[1])
        self.assertNotIn("Restore", self.devices_in_world()[0])

    def test_reboot_and_auto_boot_outlive_their_process(self):
        self.run_in_world("--exit-recovery", "--ecid", ECID)
        self.assertTrue(self.devices_in_world()[0]["AutoBoot"])
        states, devices = self.listed(self.run_in_world("--list-devices", "--detect-timeout", "3"))
        self.assertEqual((BOOTED_OS, []), (states[-1], devices))

    def test_each_process_has_its_own_without_the_variable(self):
        for _ in range(2):
            self.run_tool("--exit-recovery", "--ecid", ECID, scenario=self.scenario, status=0)
        self.assertFalse(self.world.exists())


class Broken(WorldTest):
    def assert_refused(self, process, fault):
        run = process.wait()
        self.assertEqual(70, run.status, run.stderr)
        self.assertRegex(run.stderr.decode(), rf"world\.plist: {fault}")
        self.assertEqual(1, len(run.stderr_lines))

    def test_from_the_start(self):
        for content, fault in ((b"", "is not a world, and is left as it is: is not a property"),
                               (plistlib.dumps({"Began": 1, "Devices": [{}]}),
                                r"is not a world, .*: Devices\[0\]: the key ECID is missing")):
            self.world.write_bytes(content)
            self.assert_refused(self.start_list(1), fault)
            self.assertEqual(content, self.world.read_bytes())

    def test_while_it_is_used(self):
        for break_it, fault in ((lambda: self.world.write_bytes(b"<plist>"), "is not a world"),
                                (self.world.unlink, "cannot be read")):
            self.world.unlink(missing_ok=True)
            process = self.start_list(TIME_LIMIT)
            self.wait_for_arrival(process, RECOVERY)
            break_it()
            self.assert_refused(process, fault)

    @unittest.skipUnless(RUNNER, "the limit is one of Unix")
    def test_no_space_is_left(self):
        self.scenario = {"Devices": [device(), *(device(f"{number:016X}", ConnectAfter=1000)
                                                for number in range(9))]}
        self.run_in_world("--list-devices", "--detect-timeout", "0")
        before = self.world.read_bytes()
        limited = ["sh", "-c", 'trap "" XFSZ; ulimit -f 2; exec "$@"', "sh", *RUNNER]
        process = self.start_in_world("--exit-recovery", "--ecid", ECID, runner=limited)
        self.assert_refused(process, "cannot be written; .*is the disk full")
        self.assertEqual(before, self.world.read_bytes())
        self.assertFalse(self.world.with_suffix(".plist.new").exists())

    def test_folder_is_missing(self):
        self.world = pathlib.Path(self.world.parent / "nowhere" / "world.plist")
        self.assert_refused(self.start_list(1), "cannot be locked; is its folder there")


class Kills(WorldTest):
    def test_world_stays_whole(self):
        ecids = [f"{number:016X}" for number in range(1, 5)]
        self.scenario = {"Devices": [device(ecid, AfterInterruption=1) for ecid in ecids],
                         "TimeScale": 0.1}
        self.run_in_world("--list-devices", "--detect-timeout", "0")
        generator = random.Random()
        running = {ecid: self.start_restore(ecid) for ecid in ecids}
        for _ in range(KILLS):
            time.sleep(generator.uniform(0, 0.5))
            victim = generator.choice(ecids)
            running[victim].kill()
            self.assertEqual(set(ecids), {each["ECID"] for each in self.devices_in_world()})
            running[victim] = self.start_restore(victim)
        for process in running.values():
            process.kill()
        run = self.run_in_world("--list-devices", "--detect-timeout", "4")
        self.assertFalse([each for each in self.devices_in_world() if "Restore" in each])
        self.assertEqual(b"", run.stderr)


if __name__ == "__main__":
    unittest.main()
