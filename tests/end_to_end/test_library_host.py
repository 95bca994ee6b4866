"""A host program that loads libqnrescuelib.dll itself and calls main."""

import unittest

from harness import ECID
from launcher_setup import LIBRARIES, SetupTest, windows_path


class LibraryHost(SetupTest):
    def setUp(self):
        super().setUp()
        self.libraries = self.add_files(self.root / "Bibliotheken & mehr 図書", *LIBRARIES)
        self.host = self.add_files(self.root / "host", "library_host.exe") / "library_host.exe"

    def start_host(self, *arguments):
        return self.start(*arguments, program=(self.host, windows_path(self.program),
                                                windows_path(self.libraries)),
                          scenario={"Devices": [{"ECID": ECID, "SerialNumber": "漢字"}]})

    def run_host(self, *arguments, status):
        return self.finish(self.start_host(*arguments), status=status, arguments=arguments)

    def test_command(self):
        run = self.run_host("--device-info", "--ecid", ECID, status=0)
        self.assertEqual(["漢字"], [value["SerialNumber"] for value in run.values("DeviceInfo")])

    def test_failure(self):
        run = self.run_host("--device-info", "--ecid", "漢字", status=2)
        self.assertEqual(1, len(run.documents))

    def test_main_returns_after_a_command_line_that_cannot_be_parsed(self):
        run = self.start_host("--Größe").wait()
        self.assertEqual((3, "library_host: main returned 3\n", "live-objects 0"),
                         (run.status, run.stderr.decode(), run.trace[-1]))
        self.assert_error(run.documents[0], 3, "unrecognised option '--Größe'")

    def test_without_a_library(self):
        for name in LIBRARIES:
            with self.subTest(name):
                (self.libraries / name).unlink()
                run = self.start_host("--help").wait()
                self.assertEqual((99, b""), (run.status, run.stdout))
                self.assertIn(b"library_host: LoadLibraryEx: ", run.stderr)
                self.add_files(self.libraries, name)


if __name__ == "__main__":
    unittest.main()
