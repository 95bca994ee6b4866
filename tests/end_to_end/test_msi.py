"""The Windows Installer package, installed, upgraded and removed by Wine's msiexec."""

import os
import pathlib
import shutil
import subprocess
import sys
import unittest
import zipfile

from build_folder import SOURCE, module_folder, pack, run
from harness import RUNNER, Process, ToolTest, split_documents
from launcher_setup import make_prefix, run_windows, windows_path

PROGRAM_FOLDER = r"C:\Program Files\QNRescue"
ENVIRONMENT_KEY = r"HKLM\System\CurrentControlSet\Control\Session Manager\Environment"
UNINSTALL_KEY = r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall"
# What Windows Installer adds to the registry for installed products; it keeps the keys.
INSTALLER_KEYS = (r"HKLM\Software\Classes\Installer", UNINSTALL_KEY,
                  r"HKLM\Software\Microsoft\Windows\CurrentVersion\Installer\UserData")
# Status 1603 of msiexec, of which Unix keeps the last eight bits.
FATAL_ERROR = 1603 & 0xFF

# An installation writes hundreds of files.
TIME_LIMIT = 300


def setUpModule():
    make_prefix()  # skips the module on Windows itself
    set_windows_version("win10")
    Installation.make(module_folder())


def set_windows_version(name):
    """Lets Wine be this version of Windows, and every process see it."""
    run_windows("reg", "add", r"HKCU\Software\Wine", "/v", "Version", "/d", name, "/f")


def make_package(folder, version, package):
    run(sys.executable, "-B", SOURCE / "packaging/installer.py", folder, version, package)
    return package


class Installation(ToolTest):
    @classmethod
    def make(cls, folder):
        """Makes a package of the program, one of another build of it, and two of other versions;
        the older one has a file that the program does not have."""
        content = folder / "content"
        with zipfile.ZipFile(pack(folder)) as archive:
            archive.extractall(content)
        cls.files = {path.relative_to(content).as_posix(): path.read_bytes()
                     for path in content.rglob("*") if path.is_file()}
        cls.package = make_package(content, "1.2.3", folder / "program.msi")
        shutil.copytree(content, folder / "older")
        (folder / "older/docs/gone in the next version.md").write_text("old")
        (folder / "older/README.md").write_text("old")
        cls.older = make_package(folder / "older", "1.2.2", folder / "older.msi")
        cls.same_version = make_package(folder / "older", "1.2.3", folder / "same version.msi")
        cls.newer = make_package(content, "1.2.4", folder / "newer.msi")

    def setUp(self):
        super().setUp()
        self.folder = pathlib.Path(os.environ["WINEPREFIX"], "drive_c/Program Files/QNRescue")
        self.addCleanup(self.remove_all)
        # What the test before left would hide what this one leaves.
        self.assertFalse([each for each in self.path_entries() if "QNRescue" in each])

    def remove_all(self):
        for package in (self.package, self.older, self.same_version, self.newer):
            self.call("/x", package)

    def call(self, action, package):
        """Returns the status of msiexec, which is silent."""
        return subprocess.run([*RUNNER, "msiexec", action, windows_path(package), "/qn"],
                              check=False, timeout=TIME_LIMIT, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode

    def install(self, package, status=0):
        self.assertEqual(status, self.call("/i", package))

    def remove(self, package, status=0):
        self.assertEqual(status, self.call("/x", package))

    def installed_files(self):
        return {path.relative_to(self.folder).as_posix(): path.read_bytes()
                for path in self.folder.rglob("*") if path.is_file()}

    def assert_installed(self):
        self.assertEqual(sorted(self.files), sorted(self.installed_files()))
        self.assertEqual(self.files, self.installed_files())

    def run_installed(self, *command):
        process = Process(command, self.new_folder(), {})
        self.addCleanup(process.kill)
        return process.wait()

    def registry(self, key, *options):
        """What reg.exe shows of the key."""
        return subprocess.run([*RUNNER, "reg", "query", key, *options], check=False,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL).stdout.decode("utf-8", "replace")

    def path_entries(self):
        """The folders in the machine's PATH. Wine leaves the separator of a removed one."""
        value = self.registry(ENVIRONMENT_KEY, "/v", "PATH").split("REG_EXPAND_SZ")[1].strip()
        return [entry for entry in value.split(";") if entry]

    def shown_versions(self):
        """The versions of QNRescue in the list of installed programs."""
        entries = self.registry(UNINSTALL_KEY, "/s").split("HKEY_LOCAL_MACHINE")
        return [line.split()[-1] for entry in entries if "QNRescue" in entry
                for line in entry.splitlines() if "DisplayVersion" in line]


class Install(Installation):
    def test_files_and_list_of_programs(self):
        self.install(self.package)
        self.assert_installed()
        self.assertEqual(["1.2.3"], self.shown_versions())

    def test_lists_the_simulated_devices(self):
        self.install(self.package)
        run = self.run_installed(rf"{PROGRAM_FOLDER}\simulator\qnrescue.exe", "--list-devices")
        self.assertEqual((0, b""), (run.status, run.stderr))
        (devices,) = run.values("DeviceList")
        self.assertEqual(3, len(devices))

    def test_program_folder_is_in_path(self):
        before = self.path_entries()
        self.install(self.package)
        self.assertEqual([*before, rf"{PROGRAM_FOLDER}\bin" + "\\"], self.path_entries())
        # There is no platform library here: it is enough that the program starts.
        run = self.run_installed("qnrescue", "--list-devices")
        (document,) = split_documents(run.stdout)
        self.assertIn(rf"the program's folder: {PROGRAM_FOLDER}\bin",
                      document.value["FailureReason"])

    def test_older_windows_is_refused(self):
        set_windows_version("win7")
        self.addCleanup(set_windows_version, "win10")
        self.install(self.package, status=FATAL_ERROR)
        self.assertFalse(self.folder.exists())

    def test_again_changes_nothing(self):
        self.install(self.package)
        self.install(self.package)
        self.assert_installed()
        self.assertEqual(["1.2.3"], self.shown_versions())


class Upgrade(Installation):
    def assert_replaced(self, former):
        self.install(former)
        self.assertIn("docs/gone in the next version.md", self.installed_files())
        self.install(self.package)
        self.assert_installed()
        self.assertEqual(["1.2.3"], self.shown_versions())
        self.assertEqual(1, sum("QNRescue" in entry for entry in self.path_entries()))

    def test_replaces_an_older_version(self):
        self.assert_replaced(self.older)

    def test_replaces_another_build_of_the_same_version(self):
        self.assert_replaced(self.same_version)

    def test_does_not_replace_a_newer_version(self):
        self.install(self.newer)
        self.install(self.package, status=FATAL_ERROR)
        self.assert_installed()
        self.assertEqual(["1.2.4"], self.shown_versions())


class Remove(Installation):
    def state(self):
        """What an installation changes and a removal has to restore."""
        drive = pathlib.Path(os.environ["WINEPREFIX"], "drive_c")
        files = {path.relative_to(drive).as_posix()
                 for folder in ("Program Files", "ProgramData", "users", "windows/Installer")
                 for path in (drive / folder).rglob("*")}
        # Keys without values, which Windows Installer keeps, have no line with a type.
        values = [line for key in INSTALLER_KEYS for line in self.registry(key, "/s").splitlines()
                  if "    REG_" in line]
        return files, values, self.path_entries()

    def test_nothing_is_left(self):
        before = self.state()
        self.install(self.package)
        self.assertNotEqual(before[0], self.state()[0])
        self.assertNotEqual(before[1], self.state()[1])
        self.remove(self.package)
        self.assertEqual(before, self.state())

    def test_nothing_is_left_after_an_upgrade(self):
        before = self.state()
        self.install(self.older)
        self.install(self.package)
        self.remove(self.package)
        self.assertEqual(before, self.state())

    def test_files_of_others_stay(self):
        self.install(self.package)
        (self.folder / "notes.txt").write_text("mine")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.remove(self.package)
        self.assertEqual({"notes.txt": b"mine"}, self.installed_files())


if __name__ == "__main__":
    unittest.main()
