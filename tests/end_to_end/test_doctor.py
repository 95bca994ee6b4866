"""What qnrescue-doctor.exe finds on a machine that is made for it."""

import json
import re
import shutil
import unittest

import jsonschema

from harness import BIN
from launcher_setup import (DEVICES_PACKAGE, LIBRARIES, NEEDY, USUAL_FOLDER_OF_32_BIT, SetupTest,
                            copy_with, make_32_bit, make_prefix, run_windows, windows_path)
from pages import ROOT

SCHEMA = json.loads((ROOT / "docs" / "doctor.schema.json").read_text("utf-8"))
IDS_OF_SCHEMA = SCHEMA["properties"]["findings"]["items"]["properties"]["id"]["enum"]
PAGE = ROOT / "docs" / "troubleshooting.md"
IDS = ROOT / "doctor" / "finding_ids.hpp"
DOCTOR = "qnrescue-doctor.exe"

USB_KEY = r"HKLM\SYSTEM\CurrentControlSet\Enum\USB\VID_05AC&PID_1281\SECRET"
# The version of Windows that Wine pretends to be.
WINE_KEY = rf"HKEY_CURRENT_USER\Software\Wine\AppDefaults\{DOCTOR}"
SERVICE = "Apple Mobile Device Service"

setUpModule = make_prefix


class DoctorTest(SetupTest):
    def setUp(self):
        super().setUp()
        self.add_files(self.program, DOCTOR)
        self.register(WINE_KEY, "Version", "win10")
        self.findings = []

    def examine(self, status, **how):
        """Runs the doctor, which has this exit status, and keeps what it found."""
        run = self.start_here("--json", program=DOCTOR, **how).wait()
        self.assertEqual((status, b""), (run.status, run.stderr), run.stdout)
        document = json.loads(run.stdout)
        self.check_schema(document)
        self.assertEqual(status == 0, document["restore_could_start"])
        self.findings = document["findings"]
        self.assertEqual(status == 1, "problem" in {each["word"] for each in self.findings})

    def check_schema(self, document):
        jsonschema.validate(document, SCHEMA)
        for each in document["findings"]:
            self.assertEqual(f"docs/troubleshooting.md#{each['id']}", each["see"])
            self.assertEqual(each["word"] == "ok", each["what_to_do"] == "", each)

    def found(self, name):
        """The words and texts of the findings with this id."""
        return [(each["word"], each["text"]) for each in self.findings if each["id"] == name]

    def path_of(self, library):
        return windows_path(self.program / library)


class Usable(DoctorTest):
    def setUp(self):
        super().setUp()
        self.add_files(self.program, *LIBRARIES)

    def test_restore_could_start(self):
        before = sorted(self.program.iterdir())
        self.examine(status=0)
        self.assertEqual([("ok", f'"{self.path_of(name)}" can be loaded') for name in LIBRARIES],
                         self.found("library-load"))
        (listed,) = self.found("device-list")
        self.assertEqual("ok", listed[0])
        self.assertTrue(listed[1].startswith("qnrescue.exe --list-devices ended with status 0 and"
                                             " printed:\n<?xml"), listed)
        self.assertRegex(listed[1], r"<key>Type</key>\n\t<string>DeviceList</string>")
        self.assertEqual(before, sorted(self.program.iterdir()))

    def test_system(self):
        self.examine(status=0)
        (version,) = self.found("windows-version")
        self.assertRegex(version[1], r"\AWindows 10\.0, build \d+\Z")
        (pages,) = self.found("code-page")
        self.assertRegex(pages[1], r"\AThe program's code page is \d+, that of the console is ")
        (folder,) = self.found("temporary-folder")
        self.assertRegex(folder[1], r'\AThe temporary folder "C:.*" can be written\Z')
        self.assertEqual([("warning", f'There is no service "{SERVICE}"')],
                         self.found("device-service"))
        self.assertEqual([("warning", "No device that can be restored is attached over USB")],
                         self.found("usb-device"))

    def test_old_windows(self):
        self.register(WINE_KEY, "Version", "win81")
        self.examine(status=1)
        ((word, text),) = self.found("windows-version")
        self.assertEqual("problem", word)
        self.assertRegex(text, r"\AWindows 6\.3, build \d+\Z")

    def test_place_and_version(self):
        self.examine(status=0)
        version = re.search(r"project\(QNRescue VERSION ([\d.]+)",
                            (ROOT / "CMakeLists.txt").read_text())[1]
        places = self.found("library-place")
        for name in LIBRARIES:
            self.assertRegex(
                "\n".join(text for word, text in places if word == "ok"),
                re.escape(f"{name}, the program's folder: {windows_path(self.program)}: version "
                          f"{version}.0, 64-bit, used"))

    def test_plain_text(self):
        run = self.start_here(program=DOCTOR).wait()
        self.assertEqual((0, b""), (run.status, run.stderr))
        text = run.stdout.decode()
        self.assertNotIn("\r", text)
        self.assertIn(f'ok       "{self.path_of("MobileDevice.dll")}" can be loaded\n'
                      "         See docs/troubleshooting.md#library-load\n", text)
        self.assertRegex(text, r"\nA restore could start: problems: 0, warnings: \d+\.\n\Z")

    def test_tool_that_does_not_run(self):
        (self.program / "qnrescue.exe").unlink()
        self.examine(status=1)
        ((word, text),) = self.found("device-list")
        self.assertEqual("problem", word)
        self.assertTrue(text.startswith("qnrescue.exe --list-devices did not run: "), text)

    def test_tool_that_fails(self):
        (self.program / "libqnrescuelib.dll").unlink()
        self.examine(status=1)
        ((word, text),) = self.found("device-list")
        self.assertEqual("problem", word)
        self.assertIn('libqnrescuelib.dll" is missing', text)

    def test_lists_no_device(self):
        scenario = self.new_folder() / "none.plist"
        scenario.write_text('<plist version="1.0"><dict/></plist>')
        self.examine(status=0, MOBILEDEVICE_SIMULATOR_SCENARIO=str(scenario))
        ((word, text),) = self.found("device-list")
        self.assertEqual("warning", word, text)

    def test_services(self):
        for name, *display_name in (("AMDS", "DisplayName=", SERVICE), ("usbmuxd-2",),
                                    ("Another", "DisplayName=", "Something else")):
            run_windows("sc", "create", name, "binPath=", r"C:\service.exe", *display_name)
            self.addCleanup(run_windows, "sc", "delete", name)
        self.examine(status=0)
        self.assertEqual([("warning", f'The service "AMDS" ({SERVICE}) is stopped'),
                          ("warning", 'The service "usbmuxd-2" (usbmuxd-2) is stopped')],
                         sorted(self.found("device-service")))

    def test_usb_device(self):
        self.register(USB_KEY, "ClassGUID", "{36fc9e60-c465-11cf-8056-444553540000}")
        self.register(USB_KEY, "DeviceDesc", "Recovery 修理")
        self.register(USB_KEY, "Service", "usbaapl64")
        self.examine(status=0)
        self.assertEqual([("ok", 'A device in Recovery mode (05AC:1281, "Recovery 修理"), driver:'
                           " usbaapl64")], self.found("usb-device"))


class Unusable(DoctorTest):
    def setUp(self):
        super().setUp()
        self.add_files(self.program, *LIBRARIES)

    def assert_not_loaded(self, library, reason):
        loads = self.found("library-load")
        self.assertEqual(("problem", f"{library} cannot be loaded: {reason}"), loads[-1])
        self.assertEqual([], self.found("device-list"))

    def test_file_that_is_no_library(self):
        for library in LIBRARIES:
            with self.subTest(library):
                (self.program / library).write_bytes(b"This is no library.")
                self.examine(status=1)
                fault = (f'"{self.path_of(library)}" is not a library, is damaged or cannot be'
                         " read")
                self.assertEqual([("problem", fault)], self.found("library-damaged"))
                self.assert_not_loaded(library, fault)
                self.add_files(self.program, library)

    def test_32_bit_library(self):
        for library in LIBRARIES:
            with self.subTest(library):
                make_32_bit(self.program / library)
                self.examine(status=1)
                path = self.path_of(library)
                self.assertEqual([("problem", f'"{path}" is 32-bit; this program needs a 64-bit'
                                   " library for x64")], self.found("library-processor"))
                self.assert_not_loaded(
                    library, f'"{path}" is a 32-bit library; a 64-bit one is needed')
                self.add_files(self.program, library)

    def test_library_that_lacks_names(self):
        for library, name in (("CoreFoundation.dll", "kCFBooleanTrue"),
                              ("MobileDevice.dll", "AMRestorableDeviceRestore")):
            with self.subTest(library):
                old = b"\0%b\0" % name.encode()
                copy_with(BIN / library, self.program / library, old, old[:-2] + b"~\0")
                self.examine(status=1)
                fault = ("problem", f'"{self.path_of(library)}" lacks {name}')
                self.assertEqual([fault], self.found("library-names"))
                self.assertEqual(fault, self.found("library-load")[-1])
                self.assertEqual([], self.found("device-list"))
                self.add_files(self.program, library)

    def test_missing_dependency(self):
        shutil.copy(NEEDY / "MobileDevice.dll", self.program)
        self.examine(status=1)
        reason = (f'"NeededLibrary.dll", which "{self.path_of("MobileDevice.dll")}" needs, is'
                  " missing")
        self.assertEqual([("warning", reason)], self.found("library-dependency"))
        self.assert_not_loaded("MobileDevice.dll", reason)
        shutil.copy(NEEDY / "NeededLibrary.dll", self.program)
        self.examine(status=0)
        self.assertEqual([], self.found("library-dependency"))


    def test_library_that_ends_the_process(self):
        for library in ("MobileDevice.dll", "NeededLibrary.dll"):
            shutil.copy(NEEDY / library, self.program)
        for status in (0, 3, 0xC0000005):
            with self.subTest(status):
                self.examine(status=1, NEEDY_STATUS=str(status))
                self.assertEqual([("problem", "qnrescue.exe --list-devices broke off with status"
                                   f" {status:#x} and printed:\n")], self.found("device-list"))
                self.assertEqual([], self.found("library-load"))


class Places(DoctorTest):
    def test_nothing_is_installed(self):
        self.examine(status=1)
        self.assertEqual([("problem", f"{name} was not found") for name in reversed(LIBRARIES)],
                         self.found("library-missing"))
        self.assertEqual([], self.found("library-load") + self.found("device-list"))
        texts = [text for _, text in self.found("library-place")]
        self.assertIn("MobileDevice.dll, usual folder: C:\\Program Files\\Common Files\\Apple"
                      "\\Mobile Device Support: not there", texts)
        self.assertIn("MobileDevice.dll, Store packages AppleInc.AppleDevices and"
                      " AppleInc.iTunes: not installed", texts)

    def test_registered_libraries(self):
        devices = self.add_files(self.root / "Geräte 设备", "MobileDevice.dll")
        support = self.add_files(self.root / "support", "CoreFoundation.dll")
        self.register_mobile_device(devices)
        self.register_support(support)
        self.examine(status=0)
        used = [text for _, text in self.found("library-place") if text.endswith(", used")]
        self.assertEqual(2, len(used), used)
        self.assertIn(r"Mobile Device Support\Shared\MobileDeviceDLL: " + windows_path(devices),
                      used[0])
        self.assertIn(r"Apple Application Support\InstallDir: " + windows_path(support), used[1])

    def test_two_versions_of_core_foundation(self):
        self.add_files(self.program, *LIBRARIES)
        support = self.add_usual("Apple Application Support")
        fixed = bytes.fromhex("bd04effe00000100")
        content = (BIN / "CoreFoundation.dll").read_bytes()
        at = content.index(fixed) + len(fixed)
        (support / "CoreFoundation.dll").write_bytes(
            content[:at] + bytes([7, 0, 9, 0]) + content[at + 4 :])
        self.examine(status=0)
        ((word, text),) = self.found("library-versions")
        self.assertEqual("warning", word)
        self.assertRegex(text, r'\A"' + re.escape(self.path_of("CoreFoundation.dll"))
                         + r'" \(version [\d.]+\) is used, not "C:.*Application Support'
                         + r'\\CoreFoundation.dll" \(version 9\.7\.[\d.]+\)\Z')
        shutil.copy(BIN / "CoreFoundation.dll", support)
        self.examine(status=0)
        self.assertEqual(["ok"], [word for word, _ in self.found("library-versions")])

    def test_broken_library_that_is_not_used(self):
        self.add_files(self.program, *LIBRARIES)
        other = self.root / "other"
        other.mkdir()
        (other / "MobileDevice.dll").write_bytes(b"This is no library.")
        self.register_mobile_device(other)
        self.examine(status=0)
        self.assertEqual(["warning"], [word for word, _ in self.found("library-damaged")])

    def test_installation_for_32_bit_programs(self):
        folder = self.add_usual("Mobile Device Support", *LIBRARIES, usual=USUAL_FOLDER_OF_32_BIT)
        for library in LIBRARIES:
            make_32_bit(folder / library)
        self.examine(status=1)
        self.assertEqual(["warning"], [word for word, _ in self.found("library-32-bit")])

    def test_store_package_is_searched(self):
        folder = self.add_files(self.root / "Devices 试", *LIBRARIES)
        self.register_package(DEVICES_PACKAGE, folder)
        self.examine(status=0)
        self.assertIn(f"MobileDevice.dll, Store package {DEVICES_PACKAGE}: {windows_path(folder)}:",
                      " ".join(text for _, text in self.found("library-place")))


class Options(DoctorTest):
    def test_help(self):
        run = self.start_here("--help", program=DOCTOR).wait()
        self.assertEqual((0, b""), (run.status, run.stderr))
        self.assertTrue(run.stdout.startswith(b"Usage: qnrescue-doctor "), run.stdout)

    def test_wrong_option(self):
        run = self.start_here("--jsn", program=DOCTOR).wait()
        self.assertEqual((2, b""), (run.status, run.stdout))
        self.assertTrue(run.stderr.startswith(b"qnrescue-doctor: unknown option '--jsn'\nUsage: "))


class Ids(unittest.TestCase):
    def test_page_and_schema_have_those_of_the_program(self):
        ids = re.findall(r'\[\] = "([^"]+)";', IDS.read_text("utf-8"))
        self.assertGreater(len(ids), 10)
        self.assertEqual(sorted(ids), sorted(IDS_OF_SCHEMA))
        headings = re.findall(r"^## (.+)$", PAGE.read_text("utf-8"), re.MULTILINE)
        self.assertEqual(sorted(ids), sorted(headings))


if __name__ == "__main__":
    unittest.main()
