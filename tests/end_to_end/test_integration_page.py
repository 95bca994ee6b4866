"""docs/integration.md: its samples are run."""

import plistlib
import sys
import unittest

from harness import side_by_side, split_documents
from pages import ROOT, blocks
from samples import SampleTest

load_tests = side_by_side

PAGE = (ROOT / "docs" / "integration.md").read_text(encoding="utf-8")
RECOVERY = "001E2D4C0A91C026"


class IntegrationPage(SampleTest):
    def run_python(self, *calls, **how):
        """What the Python samples print, followed by these calls."""
        program = "\n".join([*blocks(PAGE, "python"), *calls])
        return self.run_sample(sys.executable, "-c", program, **how)

    def run_restore(self, bundle, **how):
        return self.run_python(f"print(restore('{bundle}', '{RECOVERY}'))", **how)

    def test_list(self):
        lines = self.run_python()
        self.assertEqual(1, len(lines), lines)
        self.assertRegex(lines[0], rf"^DeviceList \[.*'{RECOVERY}'\]$")

    def test_restore_that_succeeds(self):
        lines = self.run_restore("update.ipsw")
        self.assertEqual(["100 %  Successful", "True"], lines[-2:])
        self.assertIn(" 48 %  Restoring image", lines)

    def test_restore_that_fails(self):
        lines = self.run_restore("update.ipsw", scenario="simulator/scenarios/restore-fails.plist")
        self.assertEqual([" 48 %  Restoring image"] * 2 + ["False"], lines[-3:])

    def test_restore_of_no_device(self):
        lines = self.run_restore("update.ipsw", scenario="simulator/scenarios/library-fails.plist")
        self.assertEqual(["AMRestoreCreateDefaultOptions failed", "False"], lines[-2:])

    def test_what_is_left_of_a_document_that_ended_early(self):
        whole = plistlib.dumps({"Type": "CommandSuccess", "Value": True})
        output = whole.partition(b"Success")[0] + b"\n" + whole + b"\n"
        command = [sys.executable, "-c", f"import sys; sys.stdout.buffer.write({output})"]
        lines = self.run_python(f"for each in documents({command}): print(*each)")
        self.assertEqual("CommandSuccess True", lines[-1])

    def test_pipe_sample(self):
        source = (ROOT / "tests" / "end_to_end" / "pipe_sample.cpp").read_text(encoding="utf-8")
        self.assertEqual([source], blocks(PAGE, "cpp"))
        run = self.run_tool(program=("pipe_sample.exe",), status=0)
        self.assertEqual(["DeviceList"], [each.type for each in split_documents(run.stdout)])


if __name__ == "__main__":
    unittest.main()
