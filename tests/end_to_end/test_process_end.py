"""Short runs, one after the other, that end while notifications and reports stream in.

QNRESCUE_PROCESS_ENDS says how many runs, 20 if it is not set.
"""

import itertools
import os
import plistlib
import unittest

from harness import COMPLETE, ECID, ToolTest, device, report, side_by_side

load_tests = side_by_side

RUNS = int(os.environ.get("QNRESCUE_PROCESS_ENDS", "20"))
OTHER, MISSING = "00000000000000FF", "0000000000000001"

# Each with its status and the types of its documents, apart from the reports of a restore.
COMMANDS = (
    (("--list-devices", "--detect-timeout", "0"), 0, ["DeviceList"]),
    (("--device-info", "--ecid", ECID), 0, ["DeviceInfo"]),
    (("--device-info", "--ecid", MISSING, "--detect-timeout", "0"), 4, ["InternalError"]),
    (("--exit-recovery", "--ecid", ECID), 5, ["InternalError"]),
    (("--restore", "x.ipsw", "--ecid", ECID, "--restore-timeout", "0"), 0, ["InternalError"]),
    (("--restore", "x.ipsw", "--ecid", OTHER), 0, []),
    (("--device-info",), 3, ["InternalError"]),
)


def streaming_scenario():
    """Two devices, notifications for seconds after all of these runs, and endless reports."""
    endless = {**report(13, 42), "After": 0.001, "Repeat": 1000000}
    return {
        "Devices": [
            device(State="DFU", RestoreReports=[endless]),
            device(OTHER, RestoreReports=[COMPLETE, endless]),
        ],
        "Notifications": [
            {"After": number / 1000, "ECID": ECID, "Type": (0, 0, 7)[number % 3]}
            for number in range(5000)
        ],
    }


class ProcessEnd(ToolTest):
    def test_ends_amid_notifications_and_reports(self):
        scenario = self.new_folder() / "scenario.plist"
        scenario.write_bytes(plistlib.dumps(streaming_scenario(), fmt=plistlib.FMT_BINARY))
        seconds = []
        for number, (command, status, types) in zip(range(RUNS), itertools.cycle(COMMANDS)):
            with self.subTest(number=number, command=command):
                run = self.start(*command, scenario=scenario).wait()
                self.assertEqual((status, b"", "live-objects 0"),
                                 (run.status, run.stderr, run.trace[-1] if run.trace else None),
                                 run)
                self.assertEqual(types, [each.type for each in run.documents
                                         if each.type != "RestoreStatus"])
                seconds.append(run.seconds)
        print(f"{len(seconds)} runs, the longest of {max(seconds):.1f} s")


if __name__ == "__main__":
    unittest.main()
