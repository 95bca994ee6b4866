"""How the command line is parsed: before any rule that combines options."""

import unittest

from harness import ECID, ToolTest, side_by_side

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

SWITCHES = (
    "--debug",
    "--debug-dump",
    "--help",
    "--no-cleanup",
    "--list-devices",
    "--device-info",
    "--exit-recovery",
    "--no-exit-recovery",
    "--erase",
    "--enter-restore-mode",
)
STRINGS = ("--amr-logfile", "--ecid", "--restore", "--restore-plist")
UNSIGNED = ("--detect-timeout", "--restore-timeout")
NUMBERS = (*UNSIGNED, "--output-pipe")


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

    def test_switches_given_twice(self):
        for switch in SWITCHES:
            with self.subTest(switch):
                self.assert_not_parsed(3, f"Option '{switch}' may only be specified once",
                                       switch, switch)

    def test_values_given_twice(self):
        for option in (*STRINGS, *NUMBERS):
            with self.subTest(option):
                self.assert_not_parsed(3, f"Option '{option}' may only be specified once",
                                       option, "1", option, "2")

    def test_given_twice_under_a_short_name(self):
        self.assert_not_parsed(3, "Option '--ecid' may only be specified once",
                               "--ecid", ECID, "--ec", ECID)

    def test_missing_value(self):
        for option in (*STRINGS, *NUMBERS):
            with self.subTest(option):
                self.assert_not_parsed(
                    1, f"the required argument for option '{option}' is missing", option)

    def test_nothing_after_the_equal_sign(self):
        self.assert_not_parsed(
            1, "the argument for option '--restore' should follow immediately after the equal sign",
            "--restore=", "--ecid", ECID)

    def test_value_for_a_switch(self):
        self.assert_not_parsed(1, "option '--list-devices' does not take any arguments",
                               "--list-devices=1")

    def test_ambiguous_names(self):
        for name, candidates in (
            ("--re", "'--restore', '--restore-plist', and '--restore-timeout'"),
            ("--restore-", "'--restore-plist', and '--restore-timeout'"),
            ("--deb", "'--debug', and '--debug-dump'"),
            ("--no", "'--no-cleanup', and '--no-exit-recovery'"),
        ):
            with self.subTest(name):
                self.assert_not_parsed(
                    1, f"option '{name}' is ambiguous and matches {candidates}", name, "x")

    def test_numbers(self):
        bad = ("abc", " ", "1 ", " 1", "1.5", "1e3", "0x10", "12a", "ü", "１")
        too_large = {
            "--detect-timeout": ("4294967296", "-4294967296", "99999999999999999999"),
            "--restore-timeout": ("4294967296", "18446744073709551617"),
            "--output-pipe": ("2147483648", "-2147483649", "4294967296"),
        }
        for option in NUMBERS:
            for value in (*(bad if option == "--detect-timeout" else bad[:2]), *too_large[option]):
                with self.subTest(option, value=value):
                    self.assert_not_parsed(
                        2, f"the argument ('{value}') for option '{option}' is invalid",
                        option, value)

    def test_empty_numbers(self):
        for option in NUMBERS:
            with self.subTest(option):
                self.assert_not_parsed(2, f"the argument for option '{option}' is invalid",
                                       option, "")

    def test_the_document_of_a_parse_error_does_not_go_to_the_pipe(self):
        self.assert_not_parsed(3, "unrecognised option '--frobnicate'",
                               "--output-pipe", "99999", "--frobnicate")

    def test_debugging_is_not_on_yet(self):
        self.assert_not_parsed(3, "unrecognised option '--frobnicate'", "--debug", "--frobnicate")

    def test_restore_without_value(self):
        self.assert_not_parsed(1, "the required argument for option '--restore' is missing",
                               "--ecid", ECID, "--restore")


class Accepted(CommandLineTest):
    """What parses is seen from what the rules say of it."""

    NO_COMMAND = (3, "Invalid command option")

    def test_no_arguments(self):
        self.assert_fails(*self.NO_COMMAND, scenario={})

    def test_names_cut_short(self):
        self.assert_fails(3, "Option --device-info requires --ecid", "--dev", scenario={})
        self.assert_fails(3, "Option --list-devices not compatible with --ecid",
                          "--li", "--ec", ECID, scenario={})
        self.assert_fails(3, "Option --no-exit-recovery requires --ecid", "--no-e", scenario={})

    def test_exact_name_that_begins_others(self):
        self.assert_fails(3, "Option --restore requires --ecid", "--restore", "x", scenario={})

    def test_values_after_an_equal_sign(self):
        self.assert_fails(3, "Option --list-devices not compatible with --ecid",
                          "--list-devices", f"--ecid={ECID}", scenario={})

    def test_value_that_looks_like_an_option(self):
        self.assert_fails(3, "Option --restore requires --ecid", "--restore", "--ecid", ECID,
                          scenario={})

    def test_words_that_belong_to_no_option_are_passed_over(self):
        self.assert_fails(*self.NO_COMMAND, "list-devices", "漢字", "", scenario={})
        self.assert_fails(*self.NO_COMMAND, "--", "--list-devices", scenario={})

    def test_largest_and_smallest_numbers(self):
        for arguments in (
            ("--detect-timeout", "4294967295"),
            ("--detect-timeout", "0"),
            ("--detect-timeout", "+3"),
            ("--detect-timeout", "007"),
            ("--output-pipe", "-2147483648", "--help"),
            ("--output-pipe", "2147483647", "--help"),
        ):
            with self.subTest(arguments):
                if "--help" in arguments:
                    self.run_tool(*arguments, scenario={}, status=0)
                else:
                    self.assert_fails(*self.NO_COMMAND, *arguments, scenario={})

    def test_no_cleanup_changes_nothing(self):
        self.assert_fails(*self.NO_COMMAND, "--no-cleanup", scenario={})


if __name__ == "__main__":
    unittest.main()
