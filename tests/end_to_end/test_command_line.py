"""What is printed for help, for a dump and for a command line that cannot be parsed."""

import unittest

from harness import ToolTest, side_by_side

load_tests = side_by_side

HELP = """\
Program options:
  --debug               Enable debugging output
  --debug-dump          Dump mobiledevice implementations (debugging)
  --help                Print this description
  --no-cleanup          Disable auto temp file cleanup on exit
  --amr-logfile arg     Specify logfile for AMRestore
  --ecid arg            Device to perform operation on
  --detect-timeout arg  How many seconds to wait for the selected device to be\x20
                        detected
  --list-devices        List all detected Apple devices
  --device-info         Output properties of specified Apple device
  --exit-recovery       Attempt to reboot a recovery device into booted mode
  --no-exit-recovery    Set a device to stay in recovery mode when it reboots
  --restore arg         Start a device restore with specified IPSW bundle
  --restore-timeout arg How many seconds to wait for a restore to complete\x20
                        before aborting
  --erase               Use with --restore to force the device to be erased\x20
                        during the restore
  --restore-plist arg   Start a device restore with options read from a plist\x20
                        file
  --enter-restore-mode  Attempt to put a recovery mode device into restore mode
  --output-pipe arg     Send formatted output to a specific pipe
"""


class CommandLineTest(ToolTest):
    def assert_not_parsed(self, code, reason, *arguments):
        """The command line is refused before the tool turns to the devices."""
        run = self.assert_fails(code, reason, *arguments, scenario={})
        self.assertEqual([], run.calls)
        self.assertEqual(b"", run.stderr)


class Help(CommandLineTest):
    def assert_helps(self, *arguments):
        run = self.run_tool("--help", *arguments, scenario={}, status=0)
        self.assertEqual(HELP + "\n", run.stderr.decode())
        self.assertEqual(b"", run.stdout)
        self.assertEqual([], run.calls)

    def test_alone(self):
        self.assert_helps()

    def test_no_other_rule_is_applied(self):
        self.assert_helps("--debug", "--list-devices", "--ecid", "zz", "--erase")

    def test_before_the_dump(self):
        self.assert_helps("--debug-dump")

    def test_nothing_is_written_to_the_pipe(self):
        self.assert_helps("--output-pipe", "99999")

    def test_cut_short(self):
        run = self.run_tool("--he", "--help", scenario={}, status=3)
        self.assert_error(run.documents[0], 3, "Option '--help' may only be specified once")

    def test_other_options_must_parse(self):
        self.assert_not_parsed(3, "unrecognised option '--frobnicate'", "--help", "--frobnicate")


class DebugDump(CommandLineTest):
    def test_dump(self):
        run = self.run_tool("--debug-dump", "--list-devices", scenario={}, status=0)
        self.assertEqual(b"", run.stdout)
        self.assertEqual([], run.calls)
        self.assertLess(run.seconds, 20)
        lines = run.stderr_lines
        self.assertEqual(1 + 1000 + 1 + 1 + 10000 + 1, len(lines))
        operations, errors = lines[:1002], lines[1002:]
        for dump, name in ((operations, "Operation"), (errors, "Error")):
            self.assertEqual(f"==== AMRLocalizedCopyStringForAMR{name} ====", dump[0])
            self.assertEqual("", dump[-1])
            for code, line in enumerate(dump[1:-1]):
                self.assertRegex(line, rf'\Acase {code}: return copyString\(CFSTR\(".+"\)\);\Z')
        self.assertEqual('case 0: return copyString(CFSTR("Unknown"));', operations[1])
        self.assertEqual('case 2: return copyString(CFSTR("DFU download"));', operations[3])
        self.assertEqual('case 208: return copyString(CFSTR("Waiting, position %d"));',
                         operations[209])
        self.assertEqual('case 1: return copyString(CFSTR("Bad argument"));', errors[2])
        self.assertEqual(
            'case 2102: return copyString(CFSTR("Not enough space to install recovery OS "));',
            errors[2103],
        )
        self.assertEqual('case 3600: return copyString(CFSTR("HTTP internal server error"));',
                         errors[3601])


class Refused(CommandLineTest):
    def test_unknown_options(self):
        for option in ("--frobnicate", "-h", "-x", "--LIST-DEVICES", "--list_devices", "--größe",
                       "--漢字"):
            with self.subTest(option):
                self.assert_not_parsed(3, f"unrecognised option '{option}'", option)

    def test_the_document_of_a_parse_error_does_not_go_to_the_pipe(self):
        self.assert_not_parsed(3, "unrecognised option '--frobnicate'",
                               "--output-pipe", "99999", "--frobnicate")

    def test_debugging_is_not_on_yet(self):
        self.assert_not_parsed(3, "unrecognised option '--frobnicate'", "--debug", "--frobnicate")


if __name__ == "__main__":
    unittest.main()
