"""The oldest Windows that has what the packed programs import, and what the pages say about it."""

import pathlib
import re
import tempfile
import unittest
import xml.etree.ElementTree
import zipfile

import pe
from build_folder import SOURCE, pack
from windows_functions import NEWER, WINDOWS_7

# These are in Windows; all other libraries that the programs import are packed with them.
C_LIBRARY = "msvcrt.dll"
SETTINGS = "{http://schemas.microsoft.com/SMI/2019/WindowsSettings}activeCodePage"
# The first Windows that obeys this setting.
BUILD_OF_UTF_8 = "18362"


def setUpModule():
    with tempfile.TemporaryDirectory(prefix="package.") as folder:
        with zipfile.ZipFile(pack(pathlib.Path(folder))) as archive:
            OldestWindows.images = {
                name: pe.Image(archive.read(name)) for name in archive.namelist()
                if name.endswith((".exe", ".dll"))}


def page(name):
    """The text of a page, on one line."""
    return " ".join((SOURCE / name).read_text("utf-8").split())


class OldestWindows(unittest.TestCase):
    def imported(self):
        """The names that a packed program or DLL imports from Windows, with those that do it."""
        packed = {pathlib.PurePath(name).name.lower() for name in self.images}
        users = {}
        for file, image in self.images.items():
            for library in image.imported_libraries:
                if library.lower() not in {*packed, C_LIBRARY}:
                    for name in image.imported_from(library):
                        users.setdefault(name, set()).add(file)
        return users

    def newer(self):
        return {name: users for name, users in self.imported().items() if name in NEWER}

    def test_each_import_has_a_known_version(self):
        imported = set(self.imported())
        self.assertGreater(len(imported), 100)
        self.assertEqual(set(), imported - WINDOWS_7 - set(NEWER),
                         "find out since when Windows has them: windows_functions.py")
        self.assertEqual(set(), WINDOWS_7 & set(NEWER))

    def test_what_sets_the_limit(self):
        self.assertEqual({"AddDllDirectory": "8", "SetDefaultDllDirectories": "8"},
                         {name: NEWER[name] for name in self.newer()})
        for name in ("AddDllDirectory", "SetDefaultDllDirectories"):
            self.assertIn(f"`{name}`", page("docs/installation.md"))
        self.assertIn("allow Windows 8, which is the first that has all functions",
                      page("docs/installation.md"))

    def test_only_the_programs_import_it(self):
        users = set().union(*self.newer().values())
        self.assertEqual({".exe"}, {pathlib.PurePath(user).suffix for user in users})

    def test_stated_windows_is_the_first_that_obeys_the_manifest(self):
        manifest = xml.etree.ElementTree.fromstring(
            self.images["bin/qnrescue.exe"].resource(pe.MANIFEST_RESOURCE))
        self.assertEqual("UTF-8", {each.tag: each.text for each in manifest.iter()}[SETTINGS])
        self.assertIn(f"(build {BUILD_OF_UTF_8})", page("docs/installation.md"))
        self.assertIn(f"(build {BUILD_OF_UTF_8})", page("README.md"))
        self.assertRegex((SOURCE / "packaging/release.py").read_text(),
                         re.escape(f'OLDEST_WINDOWS = "10.0.{BUILD_OF_UTF_8}.0"'))


if __name__ == "__main__":
    unittest.main()
