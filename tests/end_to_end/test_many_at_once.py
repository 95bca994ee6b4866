"""Many devices: each restored by its own process at the same time, and all in one list.

QNRESCUE_RESTORES_AT_ONCE says how many restores, 8 if it is not set; the list grows with it.
"""

import os
import plistlib
import random
import time
import unittest

from harness import ToolTest, device, side_by_side

load_tests = side_by_side

RESTORES = int(os.environ.get("QNRESCUE_RESTORES_AT_ONCE", "8"))
LIMIT = 600  # far above what so many need on two processors
DEVICES = 160 * RESTORES


class ManyAtOnce(ToolTest):
    def test_restores(self):
        ecids = [f"{number:016X}" for number in range(1, RESTORES + 1)]
        scenario = self.new_folder() / "scenario.plist"
        scenario.write_bytes(plistlib.dumps({"Devices": [device(ecid) for ecid in ecids]}))
        bundle = self.make_bundle()
        started = time.monotonic()
        processes = [
            self.start("--restore", str(bundle), "--ecid", ecid, "--detect-timeout", str(LIMIT),
                       "--restore-timeout", str(LIMIT), scenario=scenario)
            for ecid in ecids
        ]
        all_reports = []
        for process, ecid in zip(processes, ecids):
            run = self.finish(process, LIMIT, status=0)
            self.assertEqual({"RestoreStatus"}, {each.type for each in run.documents})
            all_reports.append([each.value for each in run.documents])
            restores = [call for call in run.calls if call.startswith("AMRestorableDeviceRestore ")]
            self.assertEqual([f"AMRestorableDeviceRestore device={ecid} context=set -> void"],
                             restores)
        print(f"{RESTORES} restores in {time.monotonic() - started:.1f} s")
        self.assertEqual([all_reports[0]] * RESTORES, all_reports)
        last = all_reports[0][-1]
        self.assertEqual(("Successful", 0, 100),
                         (last["Status"], last["Operation"], last["Progress"]))
        self.assertGreater(len(all_reports[0]), 20)

    def test_list(self):
        ecids = list({random.Random(number).getrandbits(64) for number in range(DEVICES)})
        scenario = self.new_folder() / "scenario.plist"
        scenario.write_bytes(plistlib.dumps(
            {"Devices": [device(f"{ecid:016X}") for ecid in ecids], "TimeScale": 0},
            fmt=plistlib.FMT_BINARY))
        run = self.run_tool("--list-devices", "--detect-timeout", str(3 + DEVICES // 800),
                            scenario=scenario, status=0)
        self.assertEqual(["DeviceList"], [each.type for each in run.documents])
        self.assertEqual([f"{ecid:016X}" for ecid in sorted(ecids)], run.documents[0].value)


if __name__ == "__main__":
    unittest.main()
