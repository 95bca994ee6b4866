"""What nobody gets the tool to do: reach out of its scratch folder, write over a file, run
something, or print a document of somebody else's making."""

import os
import re
import shutil
import unittest

from harness import BIN, COMPLETE, ECID, RUNNER, ToolTest, device, report, side_by_side
from pe import Image

load_tests = side_by_side

# Everything that means something in a document, and something of all the rest.
MARKUP = ("</string></dict></plist>\n<plist><dict/></plist>&lt;&#x41;&unknown;"
          "<!-- ]]> <![CDATA[ <?xml?> %s {} %value% %canonical_option% '%prefix%'"
          "%original_token% \"quoted\" größe 漢字 😀")

# How a program could start another.
STARTERS = re.compile(r"CreateProcess|ShellExec|WinExec|NtCreateUserProcess|RtlCreateUserProcess"
                      r"|^_?_?w?system$|_?w?popen$|_?w?(spawn|exec)[lv]", re.IGNORECASE)


@unittest.skipIf(RUNNER, "Wine shows a link to a folder as the folder itself")
class Scratch(ToolTest):
    """The scratch folder goes, and nothing that a link in it leads to."""

    def link_folder(self, link, target):
        import _winapi
        _winapi.CreateJunction(str(target), str(link))

    def scratch_of(self, process):
        options = process.content("trace.options.plist").decode()
        personalized = re.search(r"<string>(.*qnrescue\.[0-9a-f]{6}.*)</string>", options)[1]
        return re.sub(r"[\\/]PRB[\\/]1\Z", "", personalized)

    def run_with_links(self, plant):
        """Plants links where the scratch folder is while a restore is under way."""
        outside = self.new_folder()
        (outside / "folder").mkdir()
        (outside / "folder" / "kept.txt").write_text("kept")
        (outside / "empty").mkdir()
        (outside / "file.txt").write_text("kept")
        process = self.start("--restore", "x.ipsw", "--ecid", ECID, scenario={
            "Devices": [device(RestoreReports=[report(5, 1), {**COMPLETE, "After": 5}])]})
        process.next_document()
        scratch = self.scratch_of(process)
        self.assertFalse(os.path.lexists(scratch), scratch)
        self.addCleanup(shutil.rmtree, scratch, ignore_errors=True)
        plant(scratch, outside)
        self.assertTrue(os.path.lexists(scratch))
        self.assertTrue(process.running())
        self.finish(process, status=0)
        self.assertEqual("kept", (outside / "folder" / "kept.txt").read_text())
        self.assertEqual("kept", (outside / "file.txt").read_text())
        self.assertTrue((outside / "empty").is_dir())
        self.assertFalse(os.path.lexists(scratch))

    def test_links_inside(self):
        def plant(scratch, outside):
            os.makedirs(os.path.join(scratch, "PRB", "1"))
            for place in ("", "PRB", os.path.join("PRB", "1")):
                self.link_folder(os.path.join(scratch, place, "link"), outside / "folder")
                self.link_folder(os.path.join(scratch, place, "to empty"), outside / "empty")
            self.link_folder(os.path.join(scratch, "PRB", "loop"), scratch)
        self.run_with_links(plant)

    def test_link_in_its_place(self):
        for folder in ("folder", "empty"):
            self.run_with_links(
                lambda scratch, outside: self.link_folder(scratch, outside / folder))


class LogFile(ToolTest):
    """The command line goes into a file that the tool has made, or nowhere."""

    def echo_into(self, log):
        self.run_tool("--list-devices", "--detect-timeout", "0", "--amr-logfile", str(log),
                      status=0)

    def test_existing_file(self):
        log = self.new_folder() / "log.txt"
        for content in (b"", b"kept", b"kept\r\n" * 10000):
            log.write_bytes(content)
            self.echo_into(log)
            self.assertEqual(content, log.read_bytes())

    @unittest.skipUnless(RUNNER, "symbolic links need special rights")
    def test_links(self):
        folder = self.new_folder()
        target = folder / "target.txt"
        link = folder / "link.txt"
        link.symlink_to(target)
        self.echo_into(link)
        self.assertNotIn("--amr-logfile", target.read_text() if target.exists() else "")
        target.write_text("kept")
        self.echo_into(link)
        self.assertEqual("kept", target.read_text())
        self.assertTrue(link.is_symlink())

    def test_second_name_of_a_file(self):
        folder = self.new_folder()
        target = folder / "target.txt"
        target.write_text("kept")
        os.link(target, folder / "link.txt")
        self.echo_into(folder / "link.txt")
        self.assertEqual("kept", target.read_text())

    def test_folder(self):
        folder = self.new_folder()
        self.echo_into(folder)
        self.assertEqual([], os.listdir(folder))


class Programs(ToolTest):
    """No program is ever started."""

    def test_nothing_that_starts_programs_is_imported(self):
        for name in ("qnrescue.exe", "libqnrescuelib.dll", "libdevforwardmin.dll"):
            functions = Image((BIN / name).read_bytes()).imported_functions
            self.assertEqual([], [each for each in functions if STARTERS.search(each)], name)

    def test_the_pattern_finds_what_starts_programs(self):
        for name in ("CreateProcessW", "CreateProcessAsUserW", "ShellExecuteExW", "WinExec",
                     "system", "_wsystem", "_popen", "_wpopen", "_spawnvp", "_wexecl", "execv"):
            self.assertRegex(name, STARTERS)

    def test_commands_in_arguments(self):
        for command in ("& echo x > made.txt", "| cmd /c echo x > made.txt", "`touch made.txt`",
                        "$(touch made.txt)", "\" & echo x > made.txt & \"", "@made.txt",
                        "cmd.exe", "\\\\.\\pipe\\none", "http://localhost/x.ipsw"):
            for option in ("--restore", "--restore-plist", "--amr-logfile", "--ecid"):
                with self.subTest(option=option, command=command):
                    process = self.start(option, command, "--list-devices", "--detect-timeout",
                                         "0", scenario={})
                    self.finish(process)
                    self.assertNotIn("made.txt", os.listdir(process._folder))


class Injection(ToolTest):
    """Text from outside stays text."""

    def assert_escaped(self, run):
        """Every tag in the output is one of the documents'."""
        self.assertEqual(len(run.documents), run.stdout.count(b"</plist>"))
        for harmful in (b"<!-- ", b"<![CDATA[", b"&unknown;", b"<plist><dict/>"):
            self.assertNotIn(harmful, run.stdout)

    def test_every_option(self):
        for option in ("--ecid", "--restore", "--restore-plist", "--amr-logfile",
                       "--detect-timeout", "--restore-timeout", "--output-pipe", "--frobnicate",
                       "--list-devices", "--" + MARKUP, MARKUP):
            for arguments in ((option, MARKUP), (f"{option}={MARKUP}",),
                              (option, MARKUP, "--ecid", ECID)):
                with self.subTest(arguments):
                    run = self.run_tool(*arguments, scenario={"Devices": [device(
                        RestoreReports=[COMPLETE])]})
                    self.assert_escaped(run)

    def test_texts_arrive(self):
        run = self.assert_fails(3, f"unrecognised option '--x{MARKUP}'", f"--x{MARKUP}")
        self.assert_escaped(run)
        name = MARKUP.replace("/", "-").replace("\n", " ")
        path = self.new_folder() / re.sub(r"[<>:\"|?*]", "&", name)
        path.write_bytes(b"")
        run = self.assert_fails(8, f"Cannot open file '{path}' - Empty file", "--restore-plist",
                                str(path), "--ecid", ECID, scenario={"Devices": [device()]})
        self.assert_escaped(run)

    def test_restore_options(self):
        run = self.restore([COMPLETE], "--restore", MARKUP)
        self.assertEqual(MARKUP, run.options["RestoreBundlePath"])

    def test_what_a_device_says(self):
        said = {"Status": MARKUP, "Operation": 0, "Progress": 1, MARKUP: [{MARKUP: MARKUP}]}
        run = self.restore([{"Status": said}, COMPLETE])
        self.assert_escaped(run)
        self.assertEqual(said, run.values("RestoreStatus")[0])
        run = self.run_tool("--device-info", "--ecid", ECID, status=0, scenario={
            "Devices": [device(SerialNumber=MARKUP, ProductString=MARKUP)]})
        self.assert_escaped(run)


if __name__ == "__main__":
    unittest.main()
