"""--list-devices, and how devices enter and leave the table."""

import unittest

from harness import REGISTER, UNREGISTER, WARM_UP, ToolTest, arrival, device, side_by_side

load_tests = side_by_side

EMPTY_LIST = b"""\
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>Type</key>
	<string>DeviceList</string>
	<key>Value</key>
	<array/>
</dict>
</plist>

"""

A, B, C = "0000000000000001", "00000000000000FF", "8000000000000000"
NEVER = 1000  # seconds: after the end of any run


def notify(kind, ecid=None, after=0):
    notification = {"Type": kind, "After": after}
    if ecid is not None:
        notification["ECID"] = ecid
    return notification


CONNECTED, DISCONNECTED = 0, 1


class Listing(ToolTest):
    def list_devices(self, *arguments, **scenario):
        return self.run_tool("--list-devices", *arguments, scenario=scenario, status=0)

    def assert_lists(self, ecids, *devices, timeout="1", notifications=()):
        run = self.list_devices("--detect-timeout", timeout, Devices=list(devices),
                                Notifications=list(notifications))
        self.assertEqual(["DeviceList"], [each.type for each in run.documents])
        self.assertEqual(ecids, run.documents[0].value)
        return run

    def test_no_devices(self):
        run = self.assert_lists([], timeout="0")
        self.assertEqual(EMPTY_LIST, run.stdout)

    def test_built_in_devices(self):
        run = self.run_tool("--list-devices", "--detect-timeout", "1", status=0)
        self.assertEqual(3, len(set(run.documents[0].value)))
        self.assertEqual(sorted(run.documents[0].value), run.documents[0].value)

    def test_each_state(self):
        states = {"1": "Unknown", "2": "DFU", "3": "Recovery", "4": "RestoreOS", "5": "BootedOS",
                  "6": 7, "7": -1}
        self.assert_lists([f"{int(ecid):016X}" for ecid in states if ecid != "5"],
                          *(device(ecid, State=state) for ecid, state in states.items()))

    def test_ascending_whatever_the_order_of_arrival(self):
        self.assert_lists([A, B], device(A), device(B, ConnectAfter=0.3))
        self.assert_lists([A, B], device(A, ConnectAfter=0.3), device(B))

    def test_ascending_as_unsigned_numbers(self):
        many = [f"{(i * 0x9E3779B97F4A7C15) % 2**64:016X}" for i in range(1, 60)]
        self.assert_lists(sorted([A, C, B, *many]), device(C), device(B), device(A),
                          *map(device, many))

    def test_ecid_0_is_ignored(self):
        self.assert_lists([A], device(0), device(A), device("0"))

    def test_all_that_arrive_in_time(self):
        run = self.assert_lists([A, B], device(A), device(B, ConnectAfter=1.5),
                                device(C, ConnectAfter=NEVER), timeout="3")
        self.assertGreaterEqual(run.seconds, 3)

    def test_three_seconds_by_default(self):
        run = self.list_devices(Devices=[device(A, ConnectAfter=2), device(B, ConnectAfter=NEVER)])
        self.assertEqual([A], run.documents[0].value)
        self.assertGreaterEqual(run.seconds, 3)

    def test_time_out_0_does_not_wait(self):
        # By default the wait is long enough for this device.
        run = self.assert_lists([], device(A, ConnectAfter=2), timeout="0")
        self.assertLess(run.seconds, 20)

    def test_disconnected_before_the_end(self):
        self.assert_lists([B], device(A, DisconnectAfter=0.2), device(B))

    def test_disconnected_and_back(self):
        self.assert_lists([A], device(A, DisconnectAfter=0.2),
                          notifications=[notify(CONNECTED, A, 0.4)])

    def test_connected_twice(self):
        self.assert_lists([A], device(A), notifications=[notify(CONNECTED, A, 0.1)] * 3)

    def test_connected_twice_and_disconnected(self):
        self.assert_lists([], device(A), notifications=[notify(CONNECTED, A, 0.1),
                                                        notify(DISCONNECTED, A, 0.2)])

    def test_disconnection_of_a_device_that_is_not_there(self):
        self.assert_lists([B], device(A, ConnectAfter=NEVER), device(B),
                          notifications=[notify(DISCONNECTED, A, 0.1)] * 2)

    def test_booted_device_is_not_removed_either(self):
        self.assert_lists([], device(A, State="BootedOS", DisconnectAfter=0.2))

    def test_other_notifications_change_nothing(self):
        self.assert_lists([A], device(A), device(B, ConnectAfter=NEVER),
                          notifications=[notify(kind, ecid, 0.1) for kind in (2, -1, 2**31 - 1)
                                         for ecid in (A, B)])

    def test_null_devices_change_nothing(self):
        self.assert_lists([A], device(A),
                          notifications=[notify(CONNECTED), notify(DISCONNECTED), notify(7)])

    def test_calls(self):
        run = self.assert_lists([A, B], device(A), device(B))
        self.assertEqual(
            [
                *WARM_UP,
                REGISTER,
                *arrival(A),
                *arrival(B),
                UNREGISTER,
            ],
            run.calls,
        )


if __name__ == "__main__":
    unittest.main()
