"""docs/integration.md: its samples and the example in JavaScript are run."""

import json
import os
import plistlib
import shlex
import shutil
import stat
import subprocess
import sys
import unittest

from harness import BIN, RUNNER, TIME_LIMIT, ToolTest, side_by_side, split_documents
from pages import ROOT, Session, blocks

load_tests = side_by_side

PAGE = (ROOT / "docs" / "integration.md").read_text(encoding="utf-8")
RECOVERY = "001E2D4C0A91C026"
JAVASCRIPT = ROOT / "examples" / "javascript" / "qnrescue.js"
NODE = shutil.which("node")


class IntegrationPage(ToolTest):
    def run_sample(self, *command, scenario=None, status=0):
        """What the command prints in a folder with update.ipsw; qnrescue is found on the path."""
        folder = Session(self.new_folder()).folder
        path = BIN
        if RUNNER:
            path = folder
            script = folder / "qnrescue"
            tool = shlex.join([*RUNNER, str(BIN / "qnrescue.exe")])
            script.write_text(f'#!/bin/sh\nexec {tool} "$@"\n')
            script.chmod(script.stat().st_mode | stat.S_IXUSR)
        environment = {**os.environ, "PATH": f"{path}{os.pathsep}{os.environ['PATH']}"}
        if scenario:
            environment["MOBILEDEVICE_SIMULATOR_SCENARIO"] = f"simulator/scenarios/{scenario}"
        run = subprocess.run(command, cwd=folder, env=environment, stdout=subprocess.PIPE,
                             timeout=TIME_LIMIT)
        self.assertEqual(status, run.returncode)
        return run.stdout.decode().splitlines()

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
        lines = self.run_restore("update.ipsw", scenario="restore-fails.plist")
        self.assertEqual([" 48 %  Restoring image"] * 2 + ["False"], lines[-3:])

    def test_restore_of_no_device(self):
        lines = self.run_restore("update.ipsw", scenario="library-fails.plist")
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

    @unittest.skipUnless(NODE, "needs Node.js")
    def test_javascript_example(self):
        lines = self.run_sample(NODE, JAVASCRIPT, "--list-devices", "--detect-timeout", "1")
        self.assertIn(RECOVERY, self.json_document("DeviceList", lines[-1]))
        lines = self.run_sample(NODE, JAVASCRIPT, "--restore", "update.ipsw", "--ecid", RECOVERY)
        self.assertEqual({"Operation": 0, "Progress": 100, "Status": "Successful"},
                         self.json_document("RestoreStatus", lines[-1]))
        lines = self.run_sample(NODE, JAVASCRIPT, "--exit-recovery", status=3)
        self.assertEqual(3, self.json_document("InternalError", lines[-1])["Code"])

    def json_document(self, kind, line):
        name, _, value = line.partition(" ")
        self.assertEqual(kind, name)
        return json.loads(value)


if __name__ == "__main__":
    unittest.main()
