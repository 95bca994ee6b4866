"""What scripts/release makes of the ZIP, in the same way: the Windows Installer package, the bill
of materials, the notices, the manifests, the checksums.

The schemas of CycloneDX, winget and Scoop are not part of the project. These tests check what they
require of the keys that are used here.
"""

import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest
import zipfile

import pe
import yaml
from build_folder import BUILD, SOURCE, make_release, module_folder, pack
from harness import RUNNER, ToolTest

WINGET = "winget/QNRescue.QNRescue"
LICENSES = "licenses/"
# Of the URL, the version and the checksum in winget's manifests.
PATTERNS = {
    "PackageIdentifier": r"[^.\s\\/:*?\"<>|]{1,32}(\.[^.\s\\/:*?\"<>|]{1,32}){1,7}",
    "PackageVersion": r"\d+\.\d+\.\d+",
    "InstallerUrl": r"https?://.+",
    "InstallerSha256": r"[A-F0-9]{64}",
    "MinimumOSVersion": r"\d+(\.\d+){0,3}",
    "ManifestVersion": r"\d+\.\d+\.\d+",
}
REQUIRED = {
    "": ["DefaultLocale"],
    ".locale.en-US": ["PackageLocale", "Publisher", "PackageName", "License", "ShortDescription"],
    ".installer": ["Installers"],
}
# Scoop's schema allows no others at the top, some of them unused here.
KEYS_OF_SCOOP = set("""
## architecture autoupdate bin persist checkver cookie depends description env_add_path env_set
extract_dir extract_to hash homepage innosetup installer license notes post_install pre_install
psmodule shortcuts suggest uninstaller url version
""".split())


def setUpModule():
    if not RUNNER:
        raise unittest.SkipTest("wixl runs on Linux")
    Release.make(module_folder())


def sha256(content):
    return hashlib.sha256(content).hexdigest()


def files_below(folder):
    """The contents of all files, by their paths."""
    return {path.relative_to(folder).as_posix(): path.read_bytes()
            for path in folder.rglob("*") if path.is_file()}


def table(package, name):
    """The rows of a table of the Windows Installer package, as dictionaries."""
    lines = subprocess.run(["msiinfo", "export", package, name], check=True, text=True,
                           stdout=subprocess.PIPE).stdout.splitlines()
    columns = lines[0].split("\t")
    return [dict(zip(columns, line.split("\t"))) for line in lines[3:]]


class Release(ToolTest):
    @classmethod
    def make(cls, folder):
        cls.zip = pack(folder)
        cls.folder = folder / "release"
        make_release(cls.zip, cls.folder)
        cls.files = files_below(cls.folder)
        cls.name = cls.zip.stem
        cls.version = cls.name.split("-")[1]
        with zipfile.ZipFile(cls.zip) as archive:
            cls.packed = {name: archive.read(name) for name in archive.namelist()}
        cls.programs = sorted(name for name in cls.packed
                              if name.startswith("bin/") and name.endswith(".exe"))


class Files(Release):
    def test_names(self):
        expected = [f"{self.name}.zip", f"{self.name}.msi", f"{self.name}.cdx.json", "SHA256SUMS",
                    f"{WINGET}.yaml", f"{WINGET}.installer.yaml", f"{WINGET}.locale.en-US.yaml",
                    "scoop/qnrescue.json",
                    *(name for name in self.packed if name.startswith(LICENSES))]
        self.assertEqual(sorted(expected), sorted(self.files))

    def test_zip_and_notices_are_as_packed(self):
        self.assertEqual(self.zip.read_bytes(), self.files[f"{self.name}.zip"])
        for name, content in self.packed.items():
            if name.startswith(LICENSES):
                self.assertEqual(content, self.files[name], name)

    def test_checksums(self):
        said = subprocess.run(["sha256sum", "--check", "--strict", "SHA256SUMS"], cwd=self.folder,
                              check=True, text=True, stdout=subprocess.PIPE).stdout
        self.assertEqual(sorted(f"{name}: OK" for name in self.files if name != "SHA256SUMS"),
                         sorted(said.splitlines()))

    def test_made_again_they_are_the_same(self):
        again = self.new_folder() / "another place"
        make_release(self.zip, again, TZ="Asia/Tokyo")
        others = files_below(again)
        self.assertEqual(sorted(self.files), sorted(others))
        for name, content in self.files.items():
            self.assertEqual(content, others[name], name)

    def test_another_date_gives_another_package_of_the_same_product(self):
        again = self.new_folder()
        dated = pack(again, SOURCE_DATE_EPOCH="1700000000")
        make_release(dated, again / "release")
        package = again / "release" / f"{self.name}.msi"
        self.assertNotEqual(self.files[f"{self.name}.msi"], package.read_bytes())
        summary = [row["Value"] for row in table(package, "_SummaryInformation")]
        self.assertIn("2023/11/14 22:13:20", summary)
        first = self.folder / f"{self.name}.msi"
        # Windows knows a package by its code, so two packages must not share one.
        (code,) = (row["Value"] for row in table(first, "_SummaryInformation")
                   if row["PropertyId"] == "9")
        self.assertNotIn(code, summary)
        self.assertEqual(table(first, "Property"), table(package, "Property"))


class Refusal(Release):
    def refusal(self, *command):
        """What a part of packaging/ says when it fails."""
        done = subprocess.run([sys.executable, "-B", *command], check=False, text=True,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.assertEqual(1, done.returncode)
        return done.stderr

    def test_of_a_package_without_a_notice(self):
        libraries = self.new_folder() / "libraries.json"
        libraries.write_text('[{"name": "Boost"}, {"name": "Another"}, {"name": "One"}]')
        self.assertEqual("release.py: the notices of these are missing: Another, One\n",
                         self.refusal(SOURCE / "packaging/release.py", self.zip, libraries,
                                      self.new_folder() / "release"))

    def test_of_versions_that_windows_installer_does_not_compare(self):
        for version in ("256.0.0", "1.256.0", "1.2.65536", "1.2", "1.2.3.4", "1.2.3-beta"):
            self.assertEqual(
                f"installer.py: {version} is no version of a Windows Installer package\n",
                self.refusal(SOURCE / "packaging/installer.py", self.folder, version, "x.msi"))


class Script(Release):
    """scripts/release, for which the programs are built and packed already."""

    def setUp(self):
        super().setUp()
        self.top = self.new_folder()
        for name in ("packaging", "python"):
            shutil.copytree(SOURCE / name, self.top / name)
        shutil.copy(SOURCE / "CMakeLists.txt", self.top)  # has the version
        for folder in ("bin", "scripts", "build/windows-release"):
            (self.top / folder).mkdir(parents=True)
        for name in ("release", "step.bash"):
            shutil.copy(SOURCE / "scripts" / name, self.top / "scripts")
        shutil.copy(BUILD / "linked_libraries.json", self.top / "build/windows-release")
        for name in ("scripts/install-dependencies", "scripts/build-cross-libraries", "bin/cmake"):
            self.add_script(name, "")
        self.add_script("bin/cpack",
                        f"mkdir build/release.part\ncp '{self.zip}' build/release.part\n")
        self.made = self.top / "build/release"

    def add_script(self, name, text):
        (self.top / name).write_text("#!/bin/sh\nset -e\n" + text)
        (self.top / name).chmod(0o755)

    def run_script(self, sign):
        """Returns the status."""
        return subprocess.run([self.top / "scripts/release"], check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              env={**os.environ, "PATH": f"{self.top}/bin:{os.environ['PATH']}",
                                   "SOURCE_DATE_EPOCH": "1700000000",
                                   "QNRESCUE_SIGN": sign}).returncode

    def test_makes_everything_and_again(self):
        for _ in range(2):
            self.assertEqual(0, self.run_script(sign=""))
            files = files_below(self.made)
            sums = files.pop("SHA256SUMS").decode()
            (wheel,) = set(files) - set(self.files)
            self.assertRegex(wheel, r"\.whl$")
            self.assertIn(f"  {wheel}\n", sums)
            del files[wheel]
            self.assertEqual(files, {name: content for name, content in self.files.items()
                                     if name != "SHA256SUMS"})

    def test_leaves_no_release_that_is_not_signed(self):
        self.assertEqual(0, self.run_script(sign=""))
        self.assertEqual(1, self.run_script(sign="false"))
        self.assertFalse(self.made.exists())


class InstallerTables(Release):
    def table(self, name):
        return table(self.folder / f"{self.name}.msi", name)

    def long_names(self, name, key, column):
        """The long names of files or folders, by their keys; short ones are 8.3."""
        names = {}
        for row in self.table(name):
            short, separator, long = row[column].partition("|")
            self.assertRegex(short, r"^([\w-]{1,8}(\.\w{1,3})?|\.|SourceDir)$")
            names[row[key]] = long if separator else short
        return names

    def installed_paths(self):
        """The path below the program's folder of each file, by its key."""
        parents = {row["Directory"]: row["Directory_Parent"] for row in self.table("Directory")}
        names = self.long_names("Directory", "Directory", "DefaultDir")

        def path_of(folder):
            return "" if folder == "INSTALLDIR" else path_of(parents[folder]) + names[folder] + "/"

        folders = {row["Component"]: path_of(row["Directory_"]) for row in self.table("Component")}
        files = self.long_names("File", "File", "FileName")
        return {row["File"]: folders[row["Component_"]] + files[row["File"]]
                for row in self.table("File")}

    def test_has_every_file_of_the_zip(self):
        self.assertEqual(sorted(self.packed), sorted(self.installed_paths().values()))

    def test_versions(self):
        paths = self.installed_paths()
        hashed = {row["File_"] for row in self.table("MsiFileHash")}
        for row in self.table("File"):
            path = paths[row["File"]]
            executable = path.endswith((".exe", ".dll"))
            version = pe.Image(self.packed[path]).version if executable else ()
            self.assertEqual(".".join(map(str, version)), row["Version"], path)
            self.assertEqual(not executable, row["File"] in hashed, path)

    def test_identifiers(self):
        properties = {row["Property"]: row["Value"] for row in self.table("Property")}
        # Older versions are found by this one: it never changes.
        self.assertEqual("{9B5EE486-158F-49C5-AC07-5AED1FC8E239}", properties["UpgradeCode"])
        self.assertEqual(self.version, properties["ProductVersion"])
        self.assertEqual(("1", "ReallySuppress"), (properties["ALLUSERS"], properties["REBOOT"]))
        components = [row["ComponentId"] for row in self.table("Component")]
        self.assertEqual(len(components), len(set(components)))
        codes = {"UpgradeCode": properties["UpgradeCode"], "ProductCode": properties["ProductCode"],
                 "package": next(row["Value"] for row in self.table("_SummaryInformation")
                                 if row["PropertyId"] == "9")}
        self.assertEqual(3, len(set(codes.values())), codes)

    def test_entry_in_path(self):
        """It is the machine's, and is removed with the program, which Wine does in any case."""
        (row,) = self.table("Environment")
        self.assertEqual("=-*PATH", row["Name"])

    def test_is_for_64_bits(self):
        self.assertIn("x64;1033", [row["Value"] for row in self.table("_SummaryInformation")])
        self.assertEqual({"256"}, {row["Attributes"] for row in self.table("Component")})


class BillOfMaterials(Release):
    def setUp(self):
        super().setUp()
        self.document = json.loads(self.files[f"{self.name}.cdx.json"])
        self.program = self.document["metadata"]["component"]

    def test_head(self):
        self.assertEqual(("CycloneDX", "1.5", 1), (self.document["bomFormat"],
                                                   self.document["specVersion"],
                                                   self.document["version"]))
        self.assertRegex(self.document["serialNumber"],
                         r"^urn:uuid:[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$")
        self.assertRegex(self.document["metadata"]["timestamp"],
                         r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertEqual(("application", "QNRescue", self.version),
                         (self.program["type"], self.program["name"], self.program["version"]))
        self.assertEqual([{"alg": "SHA-256", "content": sha256(self.zip.read_bytes())}],
                         self.program["hashes"])

    def test_each_notice_has_a_library(self):
        libraries = {each["name"]: each for each in self.document["components"]}
        self.assertEqual({"library"}, {each["type"] for each in libraries.values()})
        self.assertEqual(sorted({name.split("/")[1] for name in self.packed
                                 if name.startswith(LICENSES)}), sorted(libraries))
        for name, library in libraries.items():
            self.assertRegex(library["version"], r"^\d+\.\d", name)
            self.assertRegex(library["purl"], r"^pkg:generic/[a-z0-9-]+@[\w.~%-]+$", name)
            self.assertTrue(library["licenses"][0]["expression"], name)

    def test_each_executable_has_its_checksum(self):
        self.assertEqual({name: [{"alg": "SHA-256", "content": sha256(content)}]
                          for name, content in self.packed.items()
                          if name.endswith((".exe", ".dll"))},
                         {each["name"]: each["hashes"] for each in self.program["components"]})

    def test_depends_on_all_libraries(self):
        self.assertEqual([{"ref": self.program["bom-ref"],
                           "dependsOn": [each["bom-ref"] for each in self.document["components"]]}],
                         self.document["dependencies"])


class Manifests(Release):
    def winget(self, kind, folder=None):
        return yaml.safe_load((folder or self.folder).joinpath(f"{WINGET}{kind}.yaml").read_text())

    def scoop(self, folder=None):
        return json.loads((folder or self.folder).joinpath("scoop/qnrescue.json").read_text())

    def assert_patterns(self, manifest):
        for key, value in manifest.items():
            if key in PATTERNS:
                self.assertRegex(value, rf"^({PATTERNS[key]})\Z", key)

    def test_required_keys_of_winget(self):
        types = {"": "version", ".locale.en-US": "defaultLocale", ".installer": "installer"}
        for kind, keys in REQUIRED.items():
            manifest = self.winget(kind)
            for key in (*keys, "PackageIdentifier", "PackageVersion", "ManifestVersion"):
                self.assertTrue(manifest[key], key)
            self.assertEqual(types[kind], manifest["ManifestType"])
            self.assertEqual(self.version, manifest["PackageVersion"])
            self.assert_patterns(manifest)

    def test_what_winget_installs(self):
        manifest = self.winget(".installer")
        (installer,) = manifest["Installers"]
        self.assert_patterns(installer)
        package = self.folder / f"{self.name}.msi"
        self.assertEqual({"Architecture": "x64",
                          "InstallerUrl": f"https://example.invalid/qnrescue/{self.name}.msi",
                          "InstallerSha256": sha256(package.read_bytes()).upper()}, installer)
        properties = {row["Property"]: row["Value"] for row in table(package, "Property")}
        self.assertEqual(properties["ProductCode"], manifest["ProductCode"])
        self.assertEqual(("msi", "machine"), (manifest["InstallerType"], manifest["Scope"]))
        self.assertEqual([pathlib.PurePath(each).stem for each in self.programs],
                         manifest["Commands"])

    def test_scoop(self):
        manifest = self.scoop()
        self.assertLessEqual(set(manifest), KEYS_OF_SCOOP)
        self.assertEqual(self.version, manifest["version"])
        self.assertEqual({"64bit": {"url": f"https://example.invalid/qnrescue/{self.name}.zip",
                                    "hash": sha256(self.zip.read_bytes())}},
                         manifest["architecture"])
        self.assertEqual(self.programs, manifest["bin"])
        for key in ("description", "license", "notes"):
            self.assertRegex(manifest[key], "...")

    def test_address(self):
        folder = self.new_folder() / "release"
        make_release(self.zip, folder, QNRESCUE_ADDRESS="https://downloads.test/v1/")
        self.assertEqual(f"https://downloads.test/v1/{self.name}.msi",
                         self.winget(".installer", folder)["Installers"][0]["InstallerUrl"])
        self.assertEqual(f"https://downloads.test/v1/{self.name}.zip",
                         self.scoop(folder)["architecture"]["64bit"]["url"])


class Page(unittest.TestCase):
    def test_names_what_is_made(self):
        text = (SOURCE / "docs/installation.md").read_text("utf-8")
        for name in (".zip", ".msi", ".whl", ".cdx.json", "SHA256SUMS", "winget/", "scoop/",
                     "licenses/"):
            self.assertRegex(text, rf"(?m)^\|[^|]*{re.escape(name)}`[^|]*\|", name)


if __name__ == "__main__":
    unittest.main()
