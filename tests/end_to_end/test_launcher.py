"""How the program finds and checks the libraries of the platform."""

import pathlib
import re
import shutil
import unittest

from harness import BIN, split_documents
from launcher_setup import (LIBRARIES, MOBILE_DEVICE_KEY, SUPPORT_KEY, SetupTest, copy_with,
                            make_prefix, windows_path)

FORWARDERS = pathlib.Path(__file__).parents[2] / "platform/libdevforwardmin/libdevforwardmin.def"
ADVICE = ('Install or update "Apple Devices" or "iTunes for Windows", which bring both libraries,'
          " and try again. A library in the program's folder is used before an installed one.")
USUAL_FOLDER = r"C:\Program Files\Common Files\Apple"

setUpModule = make_prefix


def full_name(key, value):
    return f"{key.replace('HKLM', 'HKEY_LOCAL_MACHINE')}\\{value}"


MOBILE_DEVICE_VALUE = full_name(MOBILE_DEVICE_KEY, "MobileDeviceDLL")
SUPPORT_VALUE = full_name(SUPPORT_KEY, "InstallDir")


class FindingTest(SetupTest):
    def setUp(self):
        super().setUp()
        self.core_foundation = self.root / "Gemeinsame Dateien" / "Größe 試験"
        self.mobile_device = self.root / "Geräte & Co" / "移动设备"

    def add_both(self):
        self.add_files(self.core_foundation, "CoreFoundation.dll")
        self.add_files(self.mobile_device, "MobileDevice.dll")

    def register_both(self):
        self.register_support(self.core_foundation)
        self.register_mobile_device(self.mobile_device)

    def add_broken(self, folder, *names):
        folder.mkdir(parents=True, exist_ok=True)
        for name in names:
            (folder / name).write_bytes(b"This is no library.")


class Places(FindingTest):
    def test_program_folder(self):
        self.add_files(self.program, *LIBRARIES)
        self.assert_works()

    def test_registry(self):
        self.add_both()
        self.register_both()
        self.assert_works()

    def test_registry_values_with_variables(self):
        self.add_both()
        self.register(MOBILE_DEVICE_KEY, "MobileDeviceDLL",
                      r"%SETUP%\Geräte & Co\移动设备\MobileDevice.dll", "REG_EXPAND_SZ")
        self.register(SUPPORT_KEY, "InstallDir", r"%SETUP%\Gemeinsame Dateien\Größe 試験",
                      "REG_EXPAND_SZ")
        self.assert_works(SETUP=windows_path(self.root))

    def test_usual_folders(self):
        self.add_usual("Apple Application Support", "CoreFoundation.dll")
        self.add_usual("Mobile Device Support", "MobileDevice.dll")
        self.assert_works()

    def test_core_foundation_beside_mobile_device(self):
        self.register_mobile_device(self.add_files(self.mobile_device, *LIBRARIES))
        self.assert_works()

    def test_both_in_the_usual_folder_of_mobile_device(self):
        self.add_usual("Mobile Device Support", *LIBRARIES)
        self.assert_works()

    def test_long_paths(self):
        long = "/".join(["Gerät " + "x" * 100] * 4)
        self.core_foundation /= long
        self.mobile_device /= long
        self.add_both()
        self.register_both()
        self.assert_works()

    def test_each_half_may_be_private(self):
        self.add_both()
        self.register_both()
        for name in LIBRARIES:
            with self.subTest(name):
                self.add_files(self.program, name)
                self.add_broken(self.core_foundation if name == "CoreFoundation.dll"
                                else self.mobile_device, name)
                self.assert_works()
                (self.program / name).unlink()
                self.add_both()


class Order(FindingTest):
    """A library that comes later in the order is not touched: here it is broken."""

    def test_program_folder_before_registry(self):
        self.add_files(self.program, *LIBRARIES)
        self.add_broken(self.core_foundation, "CoreFoundation.dll")
        self.add_broken(self.mobile_device, *LIBRARIES)
        self.register_both()
        self.assert_works()

    def test_registry_before_usual_folders(self):
        self.add_both()
        self.register_both()
        self.add_broken(self.add_usual("Apple Application Support"), "CoreFoundation.dll")
        self.add_broken(self.add_usual("Mobile Device Support"), *LIBRARIES)
        self.assert_works()

    def test_registered_core_foundation_before_the_one_beside_mobile_device(self):
        self.add_both()
        self.register_both()
        self.add_broken(self.mobile_device, "CoreFoundation.dll")
        self.assert_works()

    def test_core_foundation_beside_mobile_device_before_usual_folder(self):
        self.register_mobile_device(self.add_files(self.mobile_device, *LIBRARIES))
        self.add_broken(self.add_usual("Apple Application Support"), "CoreFoundation.dll")
        self.assert_works()

    def test_no_other_library_stands_in_for_a_broken_one(self):
        self.add_both()
        self.register_both()
        for name in LIBRARIES:
            with self.subTest(name):
                self.add_broken(self.program, name)
                self.assertTrue(self.assert_refused()[0].startswith(f"{name} cannot be loaded: "))
                (self.program / name).unlink()


class Missing(FindingTest):
    def program_line(self):
        return f"  the program's folder: {windows_path(self.program)}"

    def test_both(self):
        for arguments in (("--list-devices",), ("--help",), ("--frobnicate",), ()):
            self.assertEqual([
                "MobileDevice.dll was not found",
                "Looked for MobileDevice.dll in:",
                self.program_line(),
                f"  registry value {MOBILE_DEVICE_VALUE}: not set",
                f"  usual folder: {USUAL_FOLDER}\\Mobile Device Support",
                "CoreFoundation.dll was not found",
                "Looked for CoreFoundation.dll in:",
                self.program_line(),
                f"  registry value {SUPPORT_VALUE}: not set",
                f"  usual folder: {USUAL_FOLDER}\\Apple Application Support",
                ADVICE,
            ], self.assert_refused(arguments))

    def test_core_foundation(self):
        self.register_mobile_device(self.add_files(self.mobile_device, "MobileDevice.dll"))
        self.register_support(self.core_foundation)
        self.assertEqual([
            "CoreFoundation.dll was not found",
            "Looked for CoreFoundation.dll in:",
            self.program_line(),
            f"  registry value {SUPPORT_VALUE}: {windows_path(self.core_foundation)}\\",
            f"  beside MobileDevice.dll: {windows_path(self.mobile_device)}",
            f"  usual folder: {USUAL_FOLDER}\\Apple Application Support",
            ADVICE,
        ], self.assert_refused())

    def test_mobile_device(self):
        self.add_files(self.program, "CoreFoundation.dll")
        self.register_mobile_device(self.mobile_device)
        self.assertEqual([
            "MobileDevice.dll was not found",
            "Looked for MobileDevice.dll in:",
            self.program_line(),
            f"  registry value {MOBILE_DEVICE_VALUE}: {windows_path(self.mobile_device)}",
            f"  usual folder: {USUAL_FOLDER}\\Mobile Device Support",
            ADVICE,
        ], self.assert_refused())

    def test_values_that_name_no_place(self):
        self.add_usual("Mobile Device Support", "MobileDevice.dll")
        for data, kind, fault in (
                ("1", "REG_DWORD", "not a text"),
                (r"C:\a\0C:\b", "REG_MULTI_SZ", "not a text"),
                ("43003a005c00", "REG_BINARY", "not a text"),
                ("Apple", "REG_SZ", '"Apple" is not a full path'),
                (r"\Apple", "REG_SZ", r'"\Apple" is not a full path'),
                ("C:Apple", "REG_SZ", '"C:Apple" is not a full path'),
                ("%SYSTEMROOT%", "REG_SZ", '"%SYSTEMROOT%" is not a full path'),
                ("<Größe> & 'x'", "REG_EXPAND_SZ", "\"<Größe> & 'x'\" is not a full path")):
            with self.subTest(kind=kind, data=data):
                self.register(SUPPORT_KEY, "InstallDir", data, kind)
                lines = self.assert_refused()
                self.assertIn(f"  registry value {SUPPORT_VALUE}: {fault}", lines)
                self.assertIn(f"  usual folder: {USUAL_FOLDER}\\Apple Application Support", lines)
        self.add_usual("Apple Application Support", "CoreFoundation.dll")
        self.assert_works()

    def test_the_tools_own_library(self):
        self.add_files(self.program, *LIBRARIES)
        for name in ("libqnrescuelib.dll", "libdevforwardmin.dll"):
            with self.subTest(name):
                (self.program / name).unlink()
                fault, advice = self.assert_refused()
                path = f"{windows_path(self.program)}\\libqnrescuelib.dll"
                self.assertTrue(fault.startswith(f'LoadLibrary("{path}"): '), fault)
                self.assertEqual("qnrescue.exe, libqnrescuelib.dll and libdevforwardmin.dll belong"
                                 " in one folder: unpack all of the package again.", advice)
                self.add_files(self.program, name)
        # Another library under its name.
        shutil.copy(self.program / "libdevforwardmin.dll", self.program / "libqnrescuelib.dll")
        fault, advice = self.assert_refused()
        self.assertTrue(fault.startswith(f'GetProcAddress("{path}", "main"): '), fault)
        self.assertTrue(advice.endswith("unpack all of the package again."), advice)


class Unusable(FindingTest):
    def setUp(self):
        super().setUp()
        self.add_files(self.program, *LIBRARIES)

    def assert_lacks(self, name, lacking):
        path = f"{windows_path(self.program)}\\{name}"
        self.assertEqual([
            f"{path} lacks {lacking}",
            f"Looked for {name} in:",
            f"  the program's folder: {windows_path(self.program)}",
            ADVICE,
        ], self.assert_refused())

    def test_library_that_lacks_a_name(self):
        # The other letter leaves the names in the order that the loader needs.
        for library, name in (("CoreFoundation.dll", "CFSetApplyFunction"),
                              ("CoreFoundation.dll", "kCFBooleanTrue"),
                              ("MobileDevice.dll", "AMRestorableDeviceRestore"),
                              ("MobileDevice.dll", "AMRestorableDeviceGetECID")):
            with self.subTest(name):
                old = b"\0%b\0" % name.encode()
                copy_with(BIN / library, self.program / library, old, old[:-2] + b"~\0")
                self.assert_lacks(library, name)
                self.add_files(self.program, library)

    def test_library_that_lacks_all_names(self):
        for library in LIBRARIES:
            with self.subTest(library):
                names = re.findall(rf"= *{library[:-4]}\.(\w+)", FORWARDERS.read_text())
                (self.program / library).write_bytes((BIN / "pipe_host.exe").read_bytes())
                self.assert_lacks(
                    library, f"{', '.join(names[:5])} and {len(names) - 5} more")
                self.add_files(self.program, library)

    def test_file_that_is_no_library(self):
        for library in LIBRARIES:
            with self.subTest(library):
                self.add_broken(self.program, library)
                path = f"{windows_path(self.program)}\\{library}"
                first, *others = self.assert_refused()
                self.assertTrue(
                    first.startswith(f'{library} cannot be loaded: LoadLibrary("{path}"): '), first)
                self.assertEqual(ADVICE, others[-1])
                self.add_files(self.program, library)


class Dependencies(FindingTest):
    """Installed libraries need others. Here MobileDevice.dll needs a second CoreFoundation.dll of
    another name, which hands on to the first."""

    NEEDED = "SharedBackendX.dll"

    def setUp(self):
        super().setUp()
        self.add_both()
        self.register_both()
        copy_with(BIN / "MobileDevice.dll", self.mobile_device / "MobileDevice.dll",
                  b"CoreFoundation.dll", self.NEEDED.encode())

    def add_needed(self, folder):
        shutil.copy(BIN / "libdevforwardmin.dll", folder / self.NEEDED)

    def test_beside_the_library(self):
        self.add_needed(self.mobile_device)
        self.assert_works()

    def test_in_the_other_folder(self):
        self.add_needed(self.core_foundation)
        self.assert_works()

    def test_in_application_support_with_a_private_core_foundation(self):
        self.add_files(self.program, "CoreFoundation.dll")
        (self.core_foundation / "CoreFoundation.dll").unlink()
        self.add_needed(self.core_foundation)
        self.assert_works()

    def test_in_the_usual_application_support(self):
        self.add_files(self.program, "CoreFoundation.dll")
        self.register_support(self.root / "gone")
        self.add_needed(self.add_usual("Apple Application Support"))
        self.assert_works()

    def test_in_the_current_folder_only(self):
        current = self.new_folder()
        self.add_needed(current)
        first = self.assert_refused(current_folder=current)[0]
        self.assertTrue(first.startswith("MobileDevice.dll cannot be loaded: "), first)


class CurrentFolder(FindingTest):
    def assert_not_taken(self, first_line):
        """A complete set-up in the current folder does not help."""
        current = self.new_folder()
        self.add_files(current, "libqnrescuelib.dll", "libdevforwardmin.dll", *LIBRARIES)
        first = self.assert_refused(current_folder=current)[0]
        self.assertRegex(first, first_line)

    def test_platform_libraries(self):
        self.assert_not_taken(r"\AMobileDevice.dll was not found\Z")
        self.add_files(self.program, "MobileDevice.dll")
        self.assert_not_taken(r"\ACoreFoundation.dll was not found\Z")

    def test_libraries_of_the_program(self):
        self.add_files(self.program, *LIBRARIES)
        for name in ("libqnrescuelib.dll", "libdevforwardmin.dll"):
            (self.program / name).unlink()
            self.assert_not_taken(r"\ALoadLibrary")
            self.add_files(self.program, name)

    def test_decoys_are_left_alone(self):
        self.add_both()
        self.register_both()
        current = self.new_folder()
        self.add_broken(current, "libqnrescuelib.dll", "libdevforwardmin.dll", *LIBRARIES)
        self.assert_works(current_folder=current)


class Document(FindingTest):
    def test_form_is_that_of_the_tool(self):
        self.add_files(self.program, *LIBRARIES)
        tool = self.finish(self.start_here("--restore"), status=1).stdout.decode()
        (self.program / "MobileDevice.dll").unlink()
        launcher = self.start_here("--restore").wait().stdout.decode()
        pattern = r"(?s)(?<=<key>FailureReason</key>\n\t\t<string>).*(?=</string>)"
        self.assertRegex(tool, pattern)
        self.assertEqual(re.sub(pattern, "", tool), re.sub(pattern, "", launcher))

    def test_goes_to_standard_output_even_with_a_pipe(self):
        self.program = self.root / "plain"
        self.add_files(self.program, "qnrescue.exe", "pipe_host.exe")
        process = self.start_here("overlapped", "tool.stdout", "--", "--list-devices",
                                  "--output-pipe", "{pipe}", program="pipe_host.exe")
        run = process.wait()
        self.assertEqual((1, b""), (run.status, run.stdout))
        (document,) = split_documents(process.content("tool.stdout"))
        self.assertEqual("InternalError", document.type)
        self.assertIn(b"qnrescue: MobileDevice.dll was not found\n", run.stderr)


if __name__ == "__main__":
    unittest.main()
