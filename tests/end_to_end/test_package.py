"""The ZIP that CPack makes, unpacked in an empty folder."""

import os
import pathlib
import plistlib
import re
import shutil
import sys
import unittest
import xml.etree.ElementTree
import zipfile

import pe
from build_folder import (BUILD, CACHE, CMAKE, COMPILER, SOURCE, module_folder, pack, run,
                          same_setting)
from harness import ECID, RUNNER, TIME_LIMIT, Process, ToolTest, device, report
from launcher_setup import SetupTest, make_prefix

PROGRAM_AND_LIBRARIES = ["libdevforwardmin.dll", "libqnrescuelib.dll", "qnrescue-doctor.exe",
                         "qnrescue.exe"]
PROGRAMS = ["qnrescue-doctor.exe", "qnrescue.exe"]
SIMULATOR = ["CoreFoundation.dll", "MobileDevice.dll"]

FILES = {
    "CHANGELOG.md",
    "CONTRIBUTING.md",
    "README.md",
    *(f"bin/{name}" for name in PROGRAM_AND_LIBRARIES),
    *(f"simulator/{name}" for name in PROGRAM_AND_LIBRARIES),
    *(f"simulator/{name}" for name in SIMULATOR),
    *(f"recorder/{name}" for name in PROGRAM_AND_LIBRARIES),
    "include/QNRescue/CoreFoundation.h",
    "include/QNRescue/qnrescue.h",
    "lib/libdevforwardmin.dll.a",
    "lib/libqnrescuelib.dll.a",
    "lib/cmake/QNRescue/QNRescueConfig.cmake",
    "lib/cmake/QNRescue/QNRescueConfigVersion.cmake",
    "lib/cmake/QNRescue/QNRescueTargets.cmake",
    "lib/cmake/QNRescue/QNRescueTargets-release.cmake",
    "examples/cpp/CMakeLists.txt",
    "examples/cpp/host.cpp",
}
# Folders that are packed as they are in the sources.
FOLDERS = {"docs": "docs", "examples": "examples", "simulator/scenarios": "simulator/scenarios"}

# What the notice of each library that is linked in says.
NOTICES = {
    "Boost": "Boost Software License",
    "fmt": "Victor Zverovich",
    "GCC": "GCC Runtime Library Exception",
    "mingw-w64": "mingw-w64 project",
    "winpthreads": "winpthreads",
}
LICENSES = "licenses"

# What every Windows has. Each other library makes each start take longer.
WINDOWS_LIBRARIES = {"kernel32.dll", "msvcrt.dll"}
# What else a binary imports (bcrypt draws the digits of the scratch name); the program loads its
# library while it runs.
OWN_IMPORTS = {
    "libqnrescuelib.dll": {"libdevforwardmin.dll", "bcrypt.dll", "WS2_32.dll"},
    "MobileDevice.dll": {"CoreFoundation.dll"},
    "recorder/libdevforwardmin.dll": {"CoreFoundation.dll", "MobileDevice.dll"},
}
# All that the tool's library exports; two functions are only for callers in C++.
EXPORTS = [
    "AMRLocalizedCopyStringForAMRError",
    "AMRLocalizedCopyStringForAMROperation",
    "CFPropertyListValidateForSerialization",
    "_ZN8qnrescue43print_imp_AMRLocalizedCopyStringForAMRError"
    "ESt10shared_ptrINS_16output_str_stateEE",
    "_ZN8qnrescue47print_imp_AMRLocalizedCopyStringForAMROperation"
    "ESt10shared_ptrINS_16output_str_stateEE",
    "main",
]

MICROSOFT = "http://schemas.microsoft.com/SMI"


def setUpModule():
    folder = module_folder()
    Package.unpack(pack(folder), folder / "unpacked here")


class Package(ToolTest):
    @classmethod
    def unpack(cls, package, folder):
        cls.zip = package
        cls.folder = folder
        with zipfile.ZipFile(package) as archive:
            archive.extractall(folder)
        cls.files = {path.relative_to(folder).as_posix(): path
                     for path in folder.rglob("*") if path.is_file()}
        cls.binaries = {name: pe.Image(path.read_bytes()) for name, path in cls.files.items()
                        if path.suffix in (".dll", ".exe")}
        cls.version = package.name.split("-")[1]

    def run_packed(self, program, *arguments, **environment):
        process = Process([program, *arguments], self.new_folder(), environment)
        self.addCleanup(process.kill)
        return process.wait(TIME_LIMIT)


class Contents(Package):
    def test_name(self):
        self.assertRegex(self.zip.name, r"^qnrescue-\d+\.\d+\.\d+-win64\.zip$")

    def test_files(self):
        expected = set(FILES)
        for packed, folder in FOLDERS.items():
            expected |= {f"{packed}/{path.relative_to(SOURCE / folder).as_posix()}"
                         for path in (SOURCE / folder).rglob("*")
                         if path.is_file() and "__pycache__" not in path.parts}
        self.assertEqual(sorted(expected), sorted(name for name in self.files
                                                  if not name.startswith(f"{LICENSES}/")))

    def test_links_lead_to_packed_files(self):
        for name, file in self.files.items():
            if file.suffix == ".md":
                for link in re.findall(r"\]\((?!https?:|#)([^)#]+)", file.read_text("utf-8")):
                    self.assertTrue((file.parent / link).exists(), f"{link} in {name}")

    def test_all_folders_have_the_same_program(self):
        for name in PROGRAM_AND_LIBRARIES:
            for folder in ("simulator", "recorder"):
                same = (folder, name) != ("recorder", "libdevforwardmin.dll")
                self.assertEqual(same, self.files[f"bin/{name}"].read_bytes()
                                 == self.files[f"{folder}/{name}"].read_bytes(), (folder, name))

    def test_no_file_names_the_folders_of_the_build(self):
        # Not the source folder alone, as its path may be the end of an innocent one.
        paths = [str(path) for path in [*SOURCE.iterdir(), *BUILD.iterdir()]]
        paths += [path.replace("/", "\\") for path in paths]
        for name, file in self.files.items():
            content = file.read_bytes()
            for path in paths:
                for encoding in ("utf-8", "utf-16-le"):
                    self.assertNotIn(path.encode(encoding), content, name)

    def test_packed_again_it_is_the_same(self):
        again = pack(self.new_folder(), TZ="Asia/Tokyo")
        self.assertEqual(self.zip.read_bytes(), again.read_bytes())

    def test_date_of_the_files(self):
        dated = pack(self.new_folder(), SOURCE_DATE_EPOCH="1700000000")
        with zipfile.ZipFile(dated) as archive:
            self.assertEqual({(2023, 11, 14, 22, 13, 20)},
                             {entry.date_time for entry in archive.infolist()})

    @unittest.skipUnless(RUNNER, "the fake git is a shell script")
    def test_git_is_asked_once(self):
        folder = self.new_folder()
        git = folder / "git"
        git.write_text(f"#!/bin/sh\necho asked >>'{folder}/log'\necho 1700000000\n")
        git.chmod(0o755)
        package = shutil.copy(self.zip, folder)
        run(sys.executable, SOURCE / "cmake/pack_reproducibly.py", package, SOURCE_DATE_EPOCH="",
            PATH=f"{folder}:{os.environ['PATH']}")
        self.assertEqual("asked\n", (folder / "log").read_text())


class Licenses(Package):
    def notices(self):
        """The texts of all notices, by the library that they are of."""
        texts = {}
        for name, file in self.files.items():
            if name.startswith(f"{LICENSES}/"):
                library = name.split("/")[1]
                texts[library] = texts.get(library, "") + file.read_text("utf-8", "replace")
        return texts

    def test_each_library_has_its_notice(self):
        notices = self.notices()
        self.assertEqual(sorted(NOTICES), sorted(notices))
        for library, text in notices.items():
            self.assertRegex(text, f"(?i){NOTICES[library]}", library)

    @unittest.skipUnless((BUILD / "build.ninja").exists(), "not built by Ninja")
    def test_there_is_no_other_library(self):
        """Each archive from outside the build, which the packed programs are linked with."""
        known = {library.lower() for library in NOTICES}
        linked = set()
        for edge in (BUILD / "build.ninja").read_text().split("\n\n"):
            if re.search(rf"^build bin/({'|'.join(PROGRAM_AND_LIBRARIES + SIMULATOR)})\b", edge,
                         re.MULTILINE):
                (libraries,) = re.findall(r"^  LINK_LIBRARIES = (.*)", edge, re.MULTILINE)
                # Those of the build have relative paths.
                linked |= set(re.findall(r' "?(?:/|\w\$?:)[^"]*?/lib([a-z]+)\w*\.a\b', libraries))
        self.assertIn("boost", linked)
        self.assertEqual(set(), linked - known)


class Binaries(Package):
    def test_imports(self):
        self.assertEqual(14, len(self.binaries))
        for name, image in self.binaries.items():
            with self.subTest(name):
                imported = set(image.imported_libraries)
                own = OWN_IMPORTS.get(name) or OWN_IMPORTS.get(pathlib.PurePath(name).name, set())
                self.assertLessEqual(own, imported)
                others = {library.lower() for library in imported - own}
                self.assertLessEqual({library for library in others
                                      if not library.startswith("api-ms-win-")},
                                     WINDOWS_LIBRARIES)
                self.assertEqual(0, image.directory_size(pe.DELAYED_IMPORTS))

    def test_exports(self):
        for folder in ("bin", "simulator", "recorder"):
            self.assertEqual(EXPORTS,
                             self.binaries[f"{folder}/libqnrescuelib.dll"].exported_functions)
            for program in PROGRAMS:
                self.assertEqual([], self.binaries[f"{folder}/{program}"].exported_functions)

    def test_version(self):
        numbers = (*(int(number) for number in self.version.split(".")), 0)
        for name, image in self.binaries.items():
            with self.subTest(name):
                self.assertEqual(numbers, image.version)
                texts = image.resource(pe.VERSION_RESOURCE).decode("utf-16-le", "replace")
                for text in (self.version, "QNRescue", pathlib.PurePath(name).name):
                    self.assertIn(f"\0{text}\0", texts)

    def test_version_of_the_cmake_package(self):
        text = self.files["lib/cmake/QNRescue/QNRescueConfigVersion.cmake"].read_text()
        self.assertIn(f'set(PACKAGE_VERSION "{self.version}")', text)

    def test_manifest(self):
        for program in (f"{folder}/{name}" for folder in ("bin", "simulator") for name in PROGRAMS):
            manifest = xml.etree.ElementTree.fromstring(
                self.binaries[program].resource(pe.MANIFEST_RESOURCE))
            identity = manifest.find("{urn:schemas-microsoft-com:asm.v1}assemblyIdentity")
            self.assertEqual(f"{self.version}.0", identity.get("version"))
            settings = {each.tag: each.text for each in manifest.iter()}
            self.assertEqual("UTF-8", settings[f"{{{MICROSOFT}/2019/WindowsSettings}}activeCodePage"])
            self.assertEqual("true", settings[f"{{{MICROSOFT}/2016/WindowsSettings}}longPathAware"])

    def test_placed_at_random_without_executable_data(self):
        flags = pe.HIGH_ENTROPY_VA | pe.DYNAMIC_BASE | pe.NX_COMPAT
        for name, image in self.binaries.items():
            with self.subTest(name):
                self.assertEqual(flags, image.dll_characteristics & flags)
                self.assertEqual(0, image.characteristics & pe.RELOCATIONS_STRIPPED)
                self.assertGreater(image.image_base, 0xFFFFFFFF)
                # Without code there is nothing to relocate.
                forwards = name in ("bin/libdevforwardmin.dll", "simulator/libdevforwardmin.dll")
                self.assertEqual(not forwards,
                                 image.directory_size(pe.RELOCATIONS) > 0)

    def test_nothing_of_the_build_but_the_code(self):
        for name, image in self.binaries.items():
            with self.subTest(name):
                self.assertEqual(0, image.timestamp)
                self.assertEqual(0, image.directory_size(pe.DEBUG))
                self.assertNotIn(b".debug_", image.content)


class SimulatedSetUp(Package):
    def test_list(self):
        run = self.run_packed(self.files["simulator/qnrescue.exe"], "--list-devices")
        self.assertEqual((0, b""), (run.status, run.stderr))
        (devices,) = run.values("DeviceList")
        self.assertEqual(3, len(devices))

    def test_packed_scenario(self):
        scenario = self.files["simulator/scenarios/eight-devices.plist"]
        run = self.run_packed(self.files["simulator/qnrescue.exe"], "--list-devices",
                              MOBILEDEVICE_SIMULATOR_SCENARIO=str(scenario))
        (devices,) = run.values("DeviceList")
        expected = {each["ECID"] for each in plistlib.loads(scenario.read_bytes())["Devices"]}
        self.assertLessEqual(set(devices), expected)
        self.assertGreater(len(devices), 4)


class RecorderSetUp(Package):
    def test_records_what_the_libraries_do(self):
        """With the simulator's two libraries in the place of the real ones."""
        setup = self.new_folder()
        for name in PROGRAM_AND_LIBRARIES:
            shutil.copy(self.files[f"recorder/{name}"], setup)
        for name in SIMULATOR:
            shutil.copy(self.files[f"simulator/{name}"], setup)
        recording = setup / "session.plist"
        run = self.run_packed(setup / "qnrescue.exe", "--list-devices",
                              MOBILEDEVICE_RECORDER_FILE=str(recording))
        replay = self.run_packed(self.files["simulator/qnrescue.exe"], "--list-devices",
                                 MOBILEDEVICE_SIMULATOR_SCENARIO=str(recording))
        ((devices,), (again,)) = run.values("DeviceList"), replay.values("DeviceList")
        self.assertEqual((3, 3), (len(devices), len(again)))
        self.assertFalse(set(devices) & set(again))


class InstalledLibraries(SetupTest, Package):
    """The packed program that has no simulator beside it."""

    @classmethod
    def setUpClass(cls):
        make_prefix()

    def setUp(self):
        super().setUp()
        self.program = self.folder / "bin"

    def test_found_through_the_registry(self):
        self.register_mobile_device(self.add_files(self.root / "devices", "MobileDevice.dll"))
        self.register_support(self.add_files(self.root / "support", "CoreFoundation.dll"))
        self.assert_works()

    def test_not_installed(self):
        self.assertIn("iTunes for Windows", "\n".join(self.assert_refused()))

    def test_doctor(self):
        run = self.start_here(program="qnrescue-doctor.exe").wait()
        self.assertEqual((1, b""), (run.status, run.stderr))
        self.assertIn(b"problem  MobileDevice.dll was not found\n", run.stdout)


class HostExample(Package):
    """The C++ example, built with the CMake package."""

    @classmethod
    def setUpClass(cls):
        build = cls.zip.parent / "host"
        target = ["-DCMAKE_SYSTEM_NAME=Windows"] if RUNNER else []
        run(CMAKE, "-G", CACHE["CMAKE_GENERATOR"], "-S", cls.folder / "examples/cpp", "-B", build,
            f"-DCMAKE_PREFIX_PATH={cls.folder}", *target,
            f"-DCMAKE_CXX_COMPILER={COMPILER}", *same_setting("CMAKE_BUILD_TYPE"),
            "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror"
            " -Wno-restrict")  # which GCC 12 gives for innocent strings
        run(CMAKE, "--build", build)
        # Windows looks beside the program first.
        cls.host = shutil.copy(build / "host.exe", cls.folder / "simulator")

    def run_host(self, *arguments, scenario):
        path = self.new_folder() / "scenario.plist"
        path.write_bytes(plistlib.dumps(scenario))
        run = self.run_packed(self.host, *arguments, MOBILEDEVICE_SIMULATOR_SCENARIO=str(path))
        return run.status, run.stdout.decode().split("\r\n")[:-1], run.stderr

    def test_list(self):
        self.assertEqual((0, [f"DeviceList: 0000000000000001 {ECID}"], b""), self.run_host(
            "--list-devices", scenario={"Devices": [device(), device("1")]}))

    def test_restore(self):
        failure = report(14, 30, "Failed")
        failure["Status"]["Error"] = {"$type": "error", "Domain": "AMRestoreErrorDomain",
                                      "Code": 21}
        status, lines, errors = self.run_host(
            "--restore", "a b.ipsw", "--ecid", ECID, "--restore-timeout", "1",
            scenario={"Devices": [device(RestoreReports=[report(14, 30), failure])]})
        self.assertEqual(["RestoreStatus: Restoring, Verifying restore, 30 %",
                          "RestoreStatus: Failed, Verifying restore, 30 %: "
                          "Command execution failed on device"], lines[:2])
        self.assertEqual((0, b""), (status, errors))

    def test_status_of_the_tool(self):
        status, lines, _ = self.run_host("--device-info", "--ecid", ECID,
                                         "--detect-timeout", "0", scenario={})
        self.assertEqual(4, status)
        self.assertEqual(1, len(lines))
        self.assertRegex(lines[0], "^InternalError: .")


class Header(Package):
    def test_is_c_and_goes_with_other_declarations_of_corefoundation(self):
        ours, theirs = "#include <QNRescue/qnrescue.h>\n", "#include <QNRescue/CoreFoundation.h>\n"
        for number, text in enumerate((ours, ours + theirs, theirs + ours)):
            file = self.new_folder() / f"{number}.c"
            file.write_text(text + "qnrescue_main run;\n")
            run(COMPILER, "-x", "c", "-std=c11", "-Wall", "-Wextra",
                "-Wpedantic", "-Werror", "-fsyntax-only", "-I", self.folder / "include", file)


if __name__ == "__main__":
    unittest.main()
