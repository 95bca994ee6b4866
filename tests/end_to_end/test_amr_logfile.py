"""The log file of the restore library, which begins with the command line."""

import unittest

from harness import COMPLETE, ECID, ToolTest, device, report, side_by_side

load_tests = side_by_side


class AMRLogFile(ToolTest):
    def command_line(self, process_arguments, log):
        text = log.read_bytes().decode()
        first, _, rest = text.partition("\n")
        self.assertNotIn("\r", text)
        _, program, arguments = first.partition("qnrescue.exe ")
        self.assertTrue(program, first)
        self.assertEqual(" ".join(process_arguments), arguments)
        return rest

    def test_new_file_begins_with_the_command_line(self):
        log = self.new_folder() / "log größe 漢字.txt"
        arguments = ("--list-devices", "--detect-timeout", "0", "--amr-logfile", str(log))
        run = self.run_tool(*arguments, status=0)
        self.assertEqual("", self.command_line(arguments, log))
        self.assertIn("AMRestoreEnableFileLogging", run.call_names)

    def test_restore_appends_to_it(self):
        log = self.new_folder() / "log.txt"
        scenario = {"Devices": [device(RestoreReports=[report(5, 1), report(6, 2), COMPLETE])],
                    "TimeScale": 0}
        arguments = ("--restore", "two words.ipsw", "--ecid", ECID, "--amr-logfile", str(log))
        self.run_tool(*arguments, scenario=scenario, status=0)
        rest = self.command_line(arguments, log)
        self.assertEqual(3, len(rest.splitlines()), rest)

    def test_existing_file_is_left_and_handed_on(self):
        log = self.new_folder() / "log.txt"
        log.write_bytes(b"earlier\r\n")
        scenario = {"Devices": [device(RestoreReports=[COMPLETE])], "TimeScale": 0}
        run = self.run_tool("--restore", "x.ipsw", "--ecid", ECID, "--amr-logfile", str(log),
                            scenario=scenario, status=0)
        lines = log.read_bytes()
        self.assertTrue(lines.startswith(b"earlier\r\n"), lines)
        self.assertEqual(2, len(lines.splitlines()), lines)
        self.assertNotIn(b"--amr-logfile", lines)
        self.assertIn("AMRestoreEnableFileLogging", run.call_names)

    def test_folder_that_does_not_exist(self):
        log = self.new_folder() / "missing" / "log.txt"
        run = self.run_tool("--list-devices", "--detect-timeout", "0", "--amr-logfile", str(log),
                            status=0)
        self.assertEqual(["DeviceList"], [each.type for each in run.documents])
        self.assertIn("AMRestoreEnableFileLogging", run.call_names)
        self.assertFalse(log.parent.exists())

    def test_nothing_is_written_where_parsing_failed_before(self):
        log = self.new_folder() / "log.txt"
        self.run_tool("--frobnicate", "--amr-logfile", str(log), status=3)
        self.assertFalse(log.exists())

    def test_refused_command_is_logged(self):
        log = self.new_folder() / "log.txt"
        arguments = ("--amr-logfile", str(log))
        self.run_tool(*arguments, status=3)
        self.assertEqual("", self.command_line(arguments, log))

    def test_words_reach_the_tool_as_they_are(self):
        log = self.new_folder() / "log.txt"
        # The current folder holds files that the patterns match.
        words = ("*", "std*", "?race", "two words", 'a"b', '""', "C:\\folder\\", "C:\\two words\\",
                 'x\\"y', "Größe 漢字 😀", "%PATH%", "^&|<>'")
        arguments = ("--list-devices", "--detect-timeout", "0", "--amr-logfile", str(log), *words)
        self.run_tool(*arguments, status=0)
        self.assertEqual("", self.command_line(arguments, log))


if __name__ == "__main__":
    unittest.main()
