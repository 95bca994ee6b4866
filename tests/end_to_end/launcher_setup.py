"""Set-ups of the program in folders of their own, and a Wine prefix whose registry and usual
folders the tests may change."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from harness import BIN, LOCALE, RUNNER, TIME_LIMIT, Process, ToolTest

MOBILE_DEVICE_KEY = r"HKLM\SOFTWARE\Apple Inc.\Apple Mobile Device Support\Shared"
SUPPORT_KEY = r"HKLM\SOFTWARE\Apple Inc.\Apple Application Support"
USUAL_FOLDER = "drive_c/Program Files/Common Files/Apple"
USUAL_FOLDER_OF_32_BIT = "drive_c/Program Files (x86)/Common Files/Apple"
PACKAGES_KEY = (r"HKCR\Local Settings\Software\Microsoft\Windows\CurrentVersion\AppModel"
                r"\PackageRepository\Packages")

PROGRAM = ("qnrescue.exe", "libqnrescuelib.dll", "libdevforwardmin.dll")
LIBRARIES = ("CoreFoundation.dll", "MobileDevice.dll")

# Making a prefix takes a while on a busy machine.
PREFIX_TIME_LIMIT = 300


def make_prefix():
    """To be called by setUpModule: the module's tests run in a Wine prefix of their own."""
    if not RUNNER:
        raise unittest.SkipTest("changes the registry of the machine")
    folder = tempfile.TemporaryDirectory(prefix="end_to_end.", ignore_cleanup_errors=True)
    unittest.addModuleCleanup(folder.cleanup)
    former = os.environ.get("WINEPREFIX")
    os.environ["WINEPREFIX"] = folder.name
    unittest.addModuleCleanup(restore_prefix, former)
    run_windows("cmd", "/c", "exit", limit=PREFIX_TIME_LIMIT)
    # One server for the module; a new one for each run would cost more than the run.
    subprocess.run(["wineserver", "--wait"], check=True, timeout=PREFIX_TIME_LIMIT)
    subprocess.run(["wineserver", "--persistent"], check=True)


def restore_prefix(former):
    subprocess.run(["wineserver", "--kill"], check=False)
    if former is None:
        del os.environ["WINEPREFIX"]
    else:
        os.environ["WINEPREFIX"] = former


def run_windows(*command, limit=TIME_LIMIT, check=True):
    subprocess.run([*RUNNER, *command], check=check, timeout=limit, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                   env={**os.environ, **LOCALE})


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def copy_with(source, target, old, new):
    """Copies a file with some bytes replaced by as many others."""
    content = source.read_bytes()
    assert old in content and len(old) == len(new)
    target.write_bytes(content.replace(old, new))


class SetupTest(ToolTest):
    """Tests of programs in folders of their own."""

    def setUp(self):
        self.root = self.new_folder()
        self.program = self.root / "Werkstatt – 修理 😀"
        self.add_files(self.program, *PROGRAM)

    def add_files(self, folder, *names):
        folder.mkdir(parents=True, exist_ok=True)
        for name in names:
            shutil.copy(BIN / name, folder / name)
        return folder

    def add_usual(self, folder, *names, usual=USUAL_FOLDER):
        """Adds files to a usual folder of the prefix until the end of the test."""
        usual = pathlib.Path(os.environ["WINEPREFIX"], usual)
        self.addCleanup(shutil.rmtree, usual, ignore_errors=True)
        return self.add_files(usual / folder, *names)

    def register(self, key, name, data, kind="REG_SZ"):
        """Sets a value until the end of the test."""
        run_windows("reg", "add", key, "/v", name, "/t", kind, "/d", str(data), "/f", "/reg:64")
        self.addCleanup(run_windows, "reg", "delete", key, "/f", "/reg:64", check=False)

    def register_bytes(self, key, name, data):
        """Sets a text to these bytes, which need not be one, until the end of the test."""
        file = self.new_folder() / "values.reg"
        file.write_text("Windows Registry Editor Version 5.00\n\n"
                        f"[{key.replace('HKLM', 'HKEY_LOCAL_MACHINE')}]\n"
                        f'"{name}"=hex(1):{data.hex(",")}\n', "utf-16")
        run_windows("reg", "import", windows_path(file))
        self.addCleanup(run_windows, "reg", "delete", key, "/f", check=False)

    def register_package(self, full_name, folder):
        """Registers an app of the Microsoft Store until the end of the test."""
        self.register(f"{PACKAGES_KEY}\\{full_name}", "Path", windows_path(folder))

    def register_mobile_device(self, folder):
        self.register(MOBILE_DEVICE_KEY, "MobileDeviceDLL",
                      windows_path(folder) + r"\MobileDevice.dll")

    def register_support(self, folder):
        self.register(SUPPORT_KEY, "InstallDir", windows_path(folder) + "\\")

    def start_here(self, *arguments, current_folder=None, program="qnrescue.exe", **environment):
        """Starts the program of this set-up, with the simulator's own devices."""
        folder = current_folder or self.new_folder()
        process = Process([self.program / program, *arguments], folder,
                          {"MOBILEDEVICE_SIMULATOR_TRACE": str(folder / "trace"), **environment})
        self.addCleanup(process.kill)
        return process

    def assert_works(self, **how):
        arguments = ("--list-devices", "--detect-timeout", "0")
        run = self.finish(self.start_here(*arguments, **how), status=0, arguments=arguments)
        self.assertEqual(["DeviceList"], [each.type for each in run.documents])
        return run

    def assert_refused(self, arguments=("--list-devices",), **how):
        """The program does not call the tool; answers its reason, line by line."""
        run = self.start_here(*arguments, **how).wait()
        self.assertEqual((1, []), (run.status, run.calls), run.stderr)
        (document,) = run.documents
        reason = document.value["FailureReason"]
        self.assert_error(document, 1, reason)
        self.assertEqual(f"qnrescue: {reason}\n", run.stderr.decode())
        return reason.split("\n")
