"""--device-info, and the wait for the device."""

import plistlib
import unittest

from harness import ECID, REGISTER, UNREGISTER, WARM_UP, ToolTest, arrival, device, side_by_side

load_tests = side_by_side


class DeviceInfo(ToolTest):
    def info(self, *arguments, **properties):
        run = self.run_tool("--device-info", "--ecid", ECID, *arguments,
                            scenario={"Devices": [device(**properties)]}, status=0)
        self.assertEqual(["DeviceInfo"], [each.type for each in run.documents])
        return run.documents[0].value

    def test_all_properties(self):
        self.assertEqual(
            {
                "ECID": ECID,
                "ProductID": 0x1281,
                "BoardID": 12,
                "ChipID": 0x8110,
                "ProductType": 0xE04,
                "FusingInfo": 3,
                "LocationID": 0x14100000,
                "SerialNumber": "F4GSM1QN0D8X",
                "ProductString": "Gerät <1> & \"漢字\" 😀",
            },
            self.info(
                ProductID=0x1281,
                BoardID=12,
                ChipID=0x8110,
                ProductType=0xE04,
                FusingInfo=3,
                LocationID=0x14100000,
                SerialNumber="F4GSM1QN0D8X",
                ProductString="Gerät <1> & \"漢字\" 😀",
            ),
        )

    NUMBERS = ("ProductID", "BoardID", "ChipID", "ProductType", "FusingInfo", "LocationID")

    def test_defaults(self):
        self.assertEqual({"ECID": ECID, **dict.fromkeys(self.NUMBERS, 0)}, self.info())

    def test_no_serial_number(self):
        info = self.info(ProductString="Device")
        self.assertEqual({"ECID", "ProductString", *self.NUMBERS}, set(info))

    def test_no_product_string(self):
        info = self.info(SerialNumber="X")
        self.assertEqual({"ECID", "SerialNumber", *self.NUMBERS}, set(info))

    def test_empty_strings_are_strings(self):
        info = self.info(SerialNumber="", ProductString="")
        self.assertEqual(("", ""), (info["SerialNumber"], info["ProductString"]))

    def test_texts_that_do_not_convert(self):
        for key in ("SerialNumber", "ProductString"):
            with self.subTest(key):
                # A surrogate without its other half, which only the binary form can carry.
                texts = {"SerialNumber": "S", "ProductString": "P", key: "half \ue000"}
                scenario = plistlib.dumps({"Devices": [device(**texts)]}, fmt=plistlib.FMT_BINARY)
                path = self.new_folder() / "scenario.plist"
                path.write_bytes(scenario.replace(b"\xe0\x00", b"\xd8\x00"))
                run = self.run_tool("--device-info", "--ecid", ECID, scenario=path, status=0)
                self.assertEqual({"ECID", *self.NUMBERS, *(texts.keys() - {key})},
                                 set(run.documents[0].value))

    def test_numbers_are_signed(self):
        for given, product_id, other in (
            (0x7FFF, 0x7FFF, 0x7FFF),
            (0x8000, -0x8000, 0x8000),
            (0xFFFF, -1, 0xFFFF),
            (0x7FFFFFFF, -1, 0x7FFFFFFF),
            (0x80000000, 0, -0x80000000),
            (0xFFFFFFFF, -1, -1),
        ):
            with self.subTest(given):
                info = self.info(**dict.fromkeys(self.NUMBERS, given))
                self.assertEqual(product_id, info["ProductID"])
                self.assertEqual([other] * 5, [info[key] for key in self.NUMBERS[1:]])

    def test_each_state(self):
        for state in ("Unknown", "DFU", "Recovery", "RestoreOS", 7, -1, 2**31 - 1):
            with self.subTest(state):
                self.assertEqual(ECID, self.info(State=state)["ECID"])

    def test_the_device_asked_for_among_others(self):
        others = [device(f"{number:016X}", BoardID=number) for number in range(1, 40)]
        run = self.run_tool("--device-info", "--ecid", "0000000000000017",
                            scenario={"Devices": others}, status=0)
        self.assertEqual(("0000000000000017", 0x17),
                         (run.documents[0].value["ECID"], run.documents[0].value["BoardID"]))

    def test_calls(self):
        run = self.run_tool("--device-info", "--ecid", ECID, status=0, scenario={
            "Devices": [device(ProductID=1, BoardID=2, ChipID=3, ProductType=4, FusingInfo=5,
                               LocationID=6, SerialNumber="S")]})
        self.assertEqual(
            [
                *WARM_UP,
                REGISTER,
                *arrival(),
                f"AMRestorableDeviceGetProductID device={ECID} -> 1",
                f"AMRestorableDeviceGetBoardID device={ECID} -> 2",
                f"AMRestorableDeviceGetChipID device={ECID} -> 3",
                f"AMRestorableDeviceGetProductType device={ECID} -> 4",
                f"AMRestorableDeviceGetFusingInfo device={ECID} -> 5",
                f"AMRestorableDeviceGetLocationID device={ECID} -> 6",
                f'AMRestorableDeviceCopySerialNumber device={ECID} -> "S"',
                f"AMRestorableDeviceCopyProductString device={ECID} -> null",
                UNREGISTER,
            ],
            run.calls,
        )


class WaitForDevice(ToolTest):
    def not_found(self, seconds, *devices, ecid=ECID, shown=None, arguments=None):
        timeout = ["--detect-timeout", str(seconds)] if arguments is None else arguments
        run = self.assert_fails(
            4, f"Failed to find device with ecid {shown or ecid} after {seconds} seconds",
            "--device-info", "--ecid", ecid, *timeout, scenario={"Devices": list(devices)})
        self.assertGreaterEqual(run.seconds, seconds)
        self.assertLess(run.seconds, seconds + 20)
        self.assertNotIn("AMRestorableDeviceUnregisterForNotifications", run.call_names)

    def test_no_device(self):
        self.not_found(0)
        self.not_found(1)

    def test_time_out_0_is_not_the_default(self):
        self.not_found(0, device(ConnectAfter=2))

    def test_three_seconds_by_default(self):
        self.not_found(3, arguments=[])

    def test_other_devices_do_not_count(self):
        self.not_found(1, device("1"), device("00008020001A2B3D"))

    def test_booted_device_does_not_count(self):
        self.not_found(1, device(State="BootedOS"))

    def test_ecid_0_is_never_found(self):
        self.not_found(0, device(0), ecid="0000000000000000", shown="????????????????")

    def test_late_device(self):
        run = self.run_tool("--device-info", "--ecid", ECID, "--detect-timeout", "50",
                            scenario={"Devices": [device("1"), device(ConnectAfter=1)]}, status=0)
        self.assertEqual(ECID, run.documents[0].value["ECID"])
        self.assertGreaterEqual(run.seconds, 1)
        self.assertLess(run.seconds, 25)

    def test_device_that_comes_too_late(self):
        self.not_found(1, device(ConnectAfter=100))

    def test_two_devices_in_either_order(self):
        for first, second in ((0, 0.5), (0.5, 0)):
            run = self.run_tool("--device-info", "--ecid", ECID, scenario={
                "Devices": [device("1", ConnectAfter=first), device(ConnectAfter=second)]},
                status=0)
            self.assertEqual(ECID, run.documents[0].value["ECID"])

    def test_commands_without_their_device(self):
        for command in (("--exit-recovery",), ("--no-exit-recovery",), ("--restore", "x.ipsw")):
            with self.subTest(command):
                run = self.assert_fails(
                    4, f"Failed to find device with ecid {ECID} after 0 seconds",
                    *command, "--ecid", ECID, "--detect-timeout", "0", scenario={})
                self.assertLess(run.seconds, 20)


if __name__ == "__main__":
    unittest.main()
