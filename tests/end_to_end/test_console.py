"""What people see who run the program in a console."""

import unittest

from harness import BIN, TIME_LIMIT, Process, ToolTest, side_by_side
from launcher_setup import windows_path

load_tests = side_by_side

UTF_8, WESTERN = 65001, 850
INTERRUPTED = (0xC000013A, 0)  # Windows' status, Wine's
# Wine may stop over itself where Control-C ends a process.
WINE_FAULT = b"dlls/ntdll/"


class Console(ToolTest):
    ONE_BY_ONE = True  # Control-C concerns everybody in a console

    def run_in_console(self, *arguments, code_page=WESTERN, options=(), interrupt=False):
        """What the console shows, the program's status and the code page that it leaves."""
        folder = self.new_folder()
        report = folder / "report"
        # Not before the tool calls the device library: a process that loads libraries when Control-C
        # comes may hang in Wine, which takes two locks in different orders.
        trace = windows_path(folder / "trace")
        if interrupt:
            options = *options, f"--interrupt-at={trace}"
        command = [BIN / "console_host.exe", *options, code_page, windows_path(report),
                   BIN / "qnrescue.exe", *arguments]
        for _ in range(5):
            process = Process(command, self.new_folder(), {"MOBILEDEVICE_SIMULATOR_TRACE": trace})
            self.addCleanup(process.kill)
            run = process.wait()
            if WINE_FAULT not in run.stderr:
                break
            (folder / "trace").unlink(missing_ok=True)
        self.assertEqual((0, b""), (run.status, run.stderr))
        status, left = report.read_text().split()
        return run.stdout.decode(), int(status), int(left)

    def test_shows_utf_8_and_keeps_its_code_page(self):
        shown, status, left = self.run_in_console("--Größe")  # main returns
        self.assertEqual((3, WESTERN), (status, left))
        self.assertIn("unrecognised option '--Größe'", shown)
        _, status, left = self.run_in_console("--device-info", "--ecid", "?")  # main does not
        self.assertEqual((2, WESTERN), (status, left))

    def test_interrupted(self):
        shown, status, left = self.run_in_console(
            "--device-info", "--ecid", "0000000000000BAD", "--detect-timeout", str(2 * TIME_LIMIT),
            interrupt=True)
        self.assertIn(status, INTERRUPTED)
        self.assertEqual(WESTERN, left)
        self.assertNotIn("<plist", shown)

    def test_one_stream_of_the_two_is_enough(self):
        # Interrupted only where the code page changes.
        for missing in "--no-output", "--no-error":
            with self.subTest(missing):
                _, status, left = self.run_in_console(
                    "--device-info", "--ecid", "0000000000000BAD", "--detect-timeout",
                    str(2 * TIME_LIMIT), options=[missing], interrupt=True)
                self.assertIn(status, INTERRUPTED)
                self.assertEqual(WESTERN, left)

    def test_is_left_alone_where_no_stream_is_one(self):
        _, status, left = self.run_in_console(
            "--device-info", "--ecid", "0000000000000BAD", "--detect-timeout", "1",
            options=("--no-output", "--no-error"), interrupt=True)
        self.assertNotIn(status, INTERRUPTED)
        self.assertEqual(WESTERN, left)

    def test_one_of_utf_8_stays_so(self):
        shown, status, left = self.run_in_console("--Größe", code_page=UTF_8)
        self.assertEqual((3, UTF_8), (status, left))
        self.assertIn("unrecognised option '--Größe'", shown)


if __name__ == "__main__":
    unittest.main()
