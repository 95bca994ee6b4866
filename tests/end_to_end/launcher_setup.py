"""Installs the program in new folders, and gives it a Wine prefix whose registry and usual folders
the tests may change."""

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

DEVICES_PACKAGE = "AppleInc.AppleDevices_1.1.5.0_x64__nzyj5cx40ttqa"
ITUNES_PACKAGE = "AppleInc.iTunes_12132.1.57021.0_x64__nzyj5cx40ttqa"
# Libraries that need one library more.
NEEDY = BIN.parent / "needy"

PROGRAM = ("qnrescue.exe", "libqnrescuelib.dll", "libdevforwardmin.dll")
LIBRARIES = ("CoreFoundation.dll", "MobileDevice.dll")

# Making a prefix takes a while on a busy machine.
PREFIX_TIME_LIMIT = 300


def make_prefix():
    """Lets the tests of a module run in a new Wine prefix; setUpModule calls it."""
    if not RUNNER:
        raise unittest.SkipTest("changes the registry of the machine")
    folder = tempfile.TemporaryDirectory(prefix="end_to_end.", ignore_cleanup_errors=True)
    unittest.addModuleCleanup(folder.cleanup)
    former = os.environ.get("WINEPREFIX")
    if former and pathlib.Path(former, "ready").exists():
        copy_prefix(former, folder.name)
    os.environ["WINEPREFIX"] = folder.name
    unittest.addModuleCleanup(restore_prefix, former)
    run_windows("cmd", "/c", "exit", limit=PREFIX_TIME_LIMIT)
    # One server for the module; a new one for each run would cost more than the run.
    subprocess.run(["wineserver", "--wait"], check=True, timeout=PREFIX_TIME_LIMIT)
    subprocess.run(["wineserver", "--persistent"], check=True)


def copy_prefix(source, target):
    """Makes a prefix like another one, whose Windows folder it shares: that is faster than making
    it anew. What others keep in its folder for temporary files stays there."""
    shutil.copytree(source, target, symlinks=True, dirs_exist_ok=True, ignore=left_out)
    pathlib.Path(target, "drive_c", "windows").symlink_to(
        pathlib.Path(source, "drive_c", "windows").resolve())


def left_out(folder, names):
    """Returns what of the folder is not copied into a new prefix."""
    return names if pathlib.Path(folder).name == "Temp" else {"windows"}


class Registry:
    """What the registry of the prefix holds for the test that runs. It is written when a program
    starts, in one go: what an earlier test has set is removed then."""

    TYPES = {"REG_SZ": 1, "REG_EXPAND_SZ": 2, "REG_BINARY": 3, "REG_DWORD": 4, "REG_MULTI_SZ": 7}

    def __init__(self):
        self.values = {}
        self.written = {}

    def set(self, key, name, data, kind):
        """Sets a value to these bytes."""
        key = key.replace("HKLM", "HKEY_LOCAL_MACHINE").replace("HKCR", "HKEY_CLASSES_ROOT")
        self.values[key, name] = f"hex({self.TYPES[kind]}):{data.hex(',')}"

    def write(self, folder):
        """Makes the registry hold the values, by a file in this folder."""
        if self.values == self.written:
            return
        lines = [f"[-{key}]" for key in sorted({key for key, _ in self.written})]
        lines += [f'[{key}]\n"{name}"={data}' for (key, name), data in self.values.items()]
        file = folder / "values.reg"
        file.write_text("Windows Registry Editor Version 5.00\n\n" + "\n\n".join(lines) + "\n",
                        "utf-16")
        run_windows("reg", "import", windows_path(file))
        self.written = dict(self.values)


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


def make_32_bit(library):
    """Lets a library be taken for one of 32 bits: its processor and the size of its addresses."""
    content = bytearray(library.read_bytes())
    header = int.from_bytes(content[0x3C:0x40], "little")
    content[header + 4 : header + 6] = (0x014C).to_bytes(2, "little")
    content[header + 24 : header + 26] = (0x010B).to_bytes(2, "little")
    library.write_bytes(content)


class SetupTest(ToolTest):
    """Tests of the program in a new folder."""

    registry = Registry()

    def setUp(self):
        self.registry.values = {}
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
        """Sets a value until the end of the test, to a text or to bytes that need not be one."""
        if isinstance(data, str):
            data = (data + "\0").encode("utf-16-le")
        self.registry.set(key, name, data, kind)

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
        self.registry.write(self.new_folder())
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
        """Checks that the program does not call the tool; returns its reason, line by line without
        the last one, which leads to the doctor."""
        run = self.start_here(*arguments, **how).wait()
        self.assertEqual((1, []), (run.status, run.calls), run.stderr)
        (document,) = run.documents
        reason = document.value["FailureReason"]
        self.assert_error(document, 1, reason)
        self.assertEqual(f"qnrescue: {reason}\n", run.stderr.decode())
        *lines, last = reason.split("\n")
        self.assertEqual("To find out more, run qnrescue-doctor.exe", last)
        return lines
