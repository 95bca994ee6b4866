"""How the program finds and checks the libraries of the platform."""

import os
import pathlib
import re
import shutil
import unittest

from harness import BIN, split_documents
from launcher_setup import (DEVICES_PACKAGE, ITUNES_PACKAGE, LIBRARIES, MOBILE_DEVICE_KEY, NEEDY,
                            SUPPORT_KEY, USUAL_FOLDER_OF_32_BIT, SetupTest, copy_with, make_32_bit,
                            make_prefix, windows_path)

FORWARDERS = pathlib.Path(__file__).parents[2] / "platform/libdevforwardmin/libdevforwardmin.def"
ADVICE = ('Both libraries come with "Apple Mobile Device Support" for 64-bit Windows. The classic'
          " installer of iTunes for Windows (iTunes64Setup.exe, not the app from the Microsoft Store)"
          " brings it as AppleMobileDeviceSupport64.msi. Or copy all DLLs of a folder that has both"
          " libraries into the program's folder, which is searched first.")
REFUSED = ("Windows denies access to a library. Other programs may not load the libraries of an app from the"
           " Microsoft Store: use another installation, or a copy.")
USUAL_FOLDER = r"C:\Program Files\Common Files\Apple"
NO_PACKAGES = "  Store packages AppleInc.AppleDevices and AppleInc.iTunes: not installed"
# A file that Linux lets nobody read, not even root.
UNREADABLE = "/proc/sys/net/ipv4/route/flush"
# A folder that is closed to other users, and in a container to root.
CLOSED_FOLDER = "/proc/1/root"

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

    def test_store_packages(self):
        for package, folder in ((DEVICES_PACKAGE, self.root / "Devices 试"),
                                (ITUNES_PACKAGE, self.root / "iTunes" / "AMDS64")):
            with self.subTest(package):
                self.add_files(folder, *LIBRARIES)
                self.register_package(package, folder.parent if folder.name == "AMDS64" else folder)
                self.assert_works()
                shutil.rmtree(folder)

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

    def test_core_foundation_beside_mobile_device_before_application_support(self):
        self.register_mobile_device(self.add_files(self.mobile_device, *LIBRARIES))
        self.add_broken(self.core_foundation, "CoreFoundation.dll")
        self.register_support(self.core_foundation)
        self.add_broken(self.add_usual("Apple Application Support"), "CoreFoundation.dll")
        self.assert_works()

    def test_classic_installation_before_store_packages(self):
        self.add_usual("Mobile Device Support", *LIBRARIES)
        self.add_broken(self.mobile_device, *LIBRARIES)
        self.register_package(DEVICES_PACKAGE, self.mobile_device)
        self.assert_works()

    def test_devices_before_itunes(self):
        self.add_files(self.core_foundation, *LIBRARIES)
        self.add_broken(self.root / "AMDS64", *LIBRARIES)
        self.register_package(ITUNES_PACKAGE, self.root)
        self.register_package(DEVICES_PACKAGE, self.core_foundation)
        self.assert_works()

    def test_packages_of_others_are_left_alone(self):
        self.add_broken(self.mobile_device, *LIBRARIES)
        for name in ("AppleInc.AppleDevices_1.1.5.0_x64__0123456789abc", "AppleInc.AppleDevicesX_1"
                     "_x64__nzyj5cx40ttqa", "Another.AppleDevices_1_x64__nzyj5cx40ttqa"):
            self.register_package(name, self.mobile_device)
        self.assertIn(NO_PACKAGES, self.assert_refused())

    def test_the_32_bit_view_of_the_registry_is_left_alone(self):
        self.add_broken(self.mobile_device, *LIBRARIES)
        self.register(MOBILE_DEVICE_KEY.replace("SOFTWARE", r"SOFTWARE\Wow6432Node"),
                      "MobileDeviceDLL", windows_path(self.mobile_device / "MobileDevice.dll"))
        self.assertIn(f"  registry value {MOBILE_DEVICE_VALUE}: not set", self.assert_refused())

    def test_no_other_library_replaces_a_broken_one(self):
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
                NO_PACKAGES,
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
            f"  beside MobileDevice.dll: {windows_path(self.mobile_device)}",
            f"  registry value {SUPPORT_VALUE}: {windows_path(self.core_foundation)}\\",
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
            NO_PACKAGES,
            ADVICE,
        ], self.assert_refused())

    def test_values_that_name_no_place(self):
        self.add_usual("Mobile Device Support", "MobileDevice.dll")
        for data, kind, fault in (
                (bytes([1, 0, 0, 0]), "REG_DWORD", "not a text"),
                ("C:\\a\0C:\\b\0", "REG_MULTI_SZ", "not a text"),
                ("C:\\", "REG_BINARY", "not a text"),
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
        path = f"{windows_path(self.program)}\\libqnrescuelib.dll"
        for name, expected in (
                ("libqnrescuelib.dll", f'"{path}" is missing'),
                ("libdevforwardmin.dll", f'"libdevforwardmin.dll", which "{path}" needs, is missing')):
            with self.subTest(name):
                (self.program / name).unlink()
                fault, advice = self.assert_refused()
                self.assertEqual(expected, fault)
                self.assertEqual("qnrescue.exe, libqnrescuelib.dll and libdevforwardmin.dll belong"
                                 " in one folder: unpack the whole package again.", advice)
                self.add_files(self.program, name)
        # Another library under its name.
        shutil.copy(self.program / "libdevforwardmin.dll", self.program / "libqnrescuelib.dll")
        fault, advice = self.assert_refused()
        self.assertTrue(fault.startswith(f'GetProcAddress("{path}", "main"): '), fault)
        self.assertTrue(advice.endswith("unpack the whole package again."), advice)


class Unusable(FindingTest):
    def setUp(self):
        super().setUp()
        self.add_files(self.program, *LIBRARIES)

    def assert_lacks(self, name, lacking):
        path = f"{windows_path(self.program)}\\{name}"
        self.assertEqual([
            f"{path} lacks {lacking}",
            f"Looked for {name} in:",
            f"  the program's folder: {windows_path(self.program)} (found)",
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

    def assert_not_loaded(self, name, reason):
        self.assertEqual([
            f"{name} cannot be loaded: {reason}",
            f"Looked for {name} in:",
            f"  the program's folder: {windows_path(self.program)} (found)",
            ADVICE,
        ], self.assert_refused())

    def test_file_that_is_no_library(self):
        for library in LIBRARIES:
            with self.subTest(library):
                self.add_broken(self.program, library)
                path = f"{windows_path(self.program)}\\{library}"
                self.assert_not_loaded(library, f'"{path}" is not a library, is damaged or cannot be read')
                self.add_files(self.program, library)

    def test_32_bit_library(self):
        for library in LIBRARIES:
            with self.subTest(library):
                path = f"{windows_path(self.program)}\\{library}"
                make_32_bit(self.program / library)
                self.assert_not_loaded(
                    library, f'"{path}" is a 32-bit library; a 64-bit one is needed')
                self.add_files(self.program, library)

    def test_text_of_windows_has_no_gap(self):
        # Whole in form, but the loader wants another checksum of its headers: a section too many.
        for library in LIBRARIES:
            content = bytearray((BIN / library).read_bytes())
            header = int.from_bytes(content[0x3C:0x40], "little")
            content[header + 0x18 + 0x20 : header + 0x18 + 0x24] = (3).to_bytes(4, "little")
            (self.program / library).write_bytes(content)
            reason = "\n".join(self.assert_refused())
            self.assertNotIn("%1", reason)
            self.add_files(self.program, library)


class Refused(FindingTest):
    def setUp(self):
        super().setUp()
        self.mobile_device.mkdir(parents=True)
        (self.mobile_device / "MobileDevice.dll").symlink_to(UNREADABLE)
        self.add_files(self.mobile_device, "CoreFoundation.dll")

    def test_store_package(self):
        self.register_package(DEVICES_PACKAGE, self.mobile_device)
        lines = self.assert_refused()
        self.assertTrue(lines[0].startswith("MobileDevice.dll cannot be loaded: "), lines)
        self.assertEqual(f"  Store package {DEVICES_PACKAGE}: {windows_path(self.mobile_device)}"
                         " (found)", lines[-3])
        self.assertEqual([REFUSED, ADVICE], lines[-2:])

    def test_store_package_that_is_closed(self):
        if os.access(CLOSED_FOLDER, os.X_OK):
            self.skipTest(f"{CLOSED_FOLDER} is open")
        closed = self.root / "closed"
        closed.symlink_to(CLOSED_FOLDER)
        self.register_package(DEVICES_PACKAGE, closed)
        lines = self.assert_refused()
        self.assertEqual("MobileDevice.dll was not found", lines[0])
        place = lines.index(f"  Store package {DEVICES_PACKAGE}: {windows_path(closed)}"
                            " (access denied)")
        self.assertEqual(REFUSED, lines[place + 1])
        self.assertEqual(ADVICE, lines[-1])

    def test_what_works(self):
        """A copy beside the program, as the message says."""
        self.register_package(DEVICES_PACKAGE, self.mobile_device)
        self.add_files(self.program, *LIBRARIES)
        self.assert_works()


class ThirtyTwoBit(FindingTest):
    def test_installation_is_named(self):
        self.add_usual("Mobile Device Support", "MobileDevice.dll", usual=USUAL_FOLDER_OF_32_BIT)
        self.assertEqual([r'The installation in "C:\Program Files (x86)\Common Files\Apple\Mobile'
                          r' Device Support" is for 32-bit programs; this one needs 64-bit'
                          " libraries.", ADVICE], self.assert_refused()[-2:])


class Dependencies(FindingTest):
    """Installed libraries need others. Here MobileDevice.dll needs NeededLibrary.dll."""

    NEEDED = "NeededLibrary.dll"

    def setUp(self):
        super().setUp()
        self.add_both()
        self.register_both()
        shutil.copy(NEEDY / "MobileDevice.dll", self.mobile_device)

    def add_needed(self, folder):
        shutil.copy(NEEDY / self.NEEDED, folder)

    def assert_missing(self, **how):
        library = windows_path(self.mobile_device / "MobileDevice.dll")
        lines = self.assert_refused(**how)
        self.assertEqual(f'MobileDevice.dll cannot be loaded: "{self.NEEDED}", which "{library}"'
                         " needs, is missing", lines[0])
        self.assertIn(f"  registry value {MOBILE_DEVICE_VALUE}: {windows_path(self.mobile_device)}"
                      " (found)", lines)

    def test_beside_the_library(self):
        self.add_needed(self.mobile_device)
        self.assert_works()

    def test_in_application_support_that_has_core_foundation(self):
        self.add_needed(self.core_foundation)
        self.assert_works()

    def test_not_in_another_application_support(self):
        self.add_needed(self.core_foundation)
        self.add_needed(self.add_usual("Apple Application Support"))
        self.add_files(self.mobile_device, "CoreFoundation.dll")
        self.assert_missing()
        (self.mobile_device / "CoreFoundation.dll").unlink()
        self.add_files(self.program, "CoreFoundation.dll")
        self.assert_missing()

    def test_not_in_the_current_folder(self):
        current = self.new_folder()
        self.add_needed(current)
        self.assert_missing(current_folder=current)

    def test_32_bit(self):
        self.add_needed(self.mobile_device)
        make_32_bit(self.mobile_device / self.NEEDED)
        folder = windows_path(self.mobile_device)
        self.assertEqual(f'MobileDevice.dll cannot be loaded: "{folder}\\{self.NEEDED}", which'
                         f' "{folder}\\MobileDevice.dll" needs, is a 32-bit library; a 64-bit one'
                         " is needed", self.assert_refused()[0])


class InTheProcess(FindingTest):
    """What a library finds when it runs in the process: the needy one reports it."""

    NO_DIALOG_OF_FILES_OR_FAULTS = 0x0001 | 0x0002

    def setUp(self):
        super().setUp()
        self.add_files(self.program, "CoreFoundation.dll")
        for library in NEEDY.glob("*.dll"):
            shutil.copy(library, self.program)
        self.report = self.root / "report"

    def run_needy(self, **how):
        """The error mode, how many standard handles are inherited, and where the library of a bare
        name came from."""
        self.assert_works(NEEDY_REPORT=windows_path(self.report), NEEDY_LIBRARY="Bare.dll", **how)
        mode, inherited, path = self.report.read_text("utf-8-sig").rstrip("\n").split(" ", 2)
        return int(mode), int(inherited), path

    def test_no_dialog_is_raised(self):
        mode, *_ = self.run_needy()
        self.assertEqual(self.NO_DIALOG_OF_FILES_OR_FAULTS,
                         mode & self.NO_DIALOG_OF_FILES_OR_FAULTS)

    def test_standard_handles_are_not_inherited(self):
        self.assertEqual(0, self.run_needy()[1])

    def test_library_of_a_bare_name_beside_an_installed_one(self):
        installed = self.root / "installed"
        self.add_files(installed, "CoreFoundation.dll")
        for library in NEEDY.glob("*.dll"):
            (self.program / library.name).unlink()
            shutil.copy(library, installed)
        self.register_mobile_device(installed)
        shutil.copy(NEEDY / "NeededLibrary.dll", installed / "Bare.dll")
        self.assertEqual(windows_path(installed / "Bare.dll"), self.run_needy()[2])

    def test_library_of_a_bare_name_in_the_current_folder(self):
        current = self.new_folder()
        shutil.copy(NEEDY / "NeededLibrary.dll", current / "Bare.dll")
        self.assertEqual("", self.run_needy(current_folder=current, WINEPATH=windows_path(current),
                                            PATH=f"{os.environ['PATH']}:{current}")[2])
        shutil.copy(NEEDY / "NeededLibrary.dll", self.program / "Bare.dll")
        self.assertEqual(windows_path(self.program / "Bare.dll"), self.run_needy()[2])


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
        for name, first_line in (("libqnrescuelib.dll", r'libqnrescuelib.dll" is missing\Z'),
                                 ("libdevforwardmin.dll", r" needs, is missing\Z")):
            (self.program / name).unlink()
            self.assert_not_taken(first_line)
            self.add_files(self.program, name)

    def test_decoys_are_left_alone(self):
        self.add_both()
        self.register_both()
        current = self.new_folder()
        self.add_broken(current, "libqnrescuelib.dll", "libdevforwardmin.dll", *LIBRARIES)
        self.assert_works(current_folder=current)


class Document(FindingTest):
    def test_is_well_formed_whatever_the_registry_holds(self):
        text = "a\x01\x1b<&>\ufffe\uffffz\ud800"
        self.add_usual("Mobile Device Support", "MobileDevice.dll")
        self.register(SUPPORT_KEY, "InstallDir",
                      (text + "\0").encode("utf-16-le", "surrogatepass"))
        self.assertIn(f'  registry value {SUPPORT_VALUE}: "a\ufffd\ufffd<&>\ufffd\ufffdz\ufffd" is'
                      " not a full path", self.assert_refused())

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
