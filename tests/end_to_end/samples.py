"""Runs samples and examples that start `qnrescue`, which is in their PATH."""

import os
import shlex
import stat
import subprocess

from harness import BIN, RUNNER, TIME_LIMIT, ToolTest
from pages import Session


class SampleTest(ToolTest):
    """Tests of programs that drive the tool."""

    def run_sample(self, *command, scenario=None, status=0, **environment):
        """Returns the lines that the command prints in a folder with update.ipsw."""
        folder = Session(self.new_folder()).folder
        path = BIN
        if RUNNER:
            path = folder
            script = folder / "qnrescue"
            tool = shlex.join([*RUNNER, str(BIN / "qnrescue.exe")])
            script.write_text(f'#!/bin/sh\nexec {tool} "$@"\n')
            script.chmod(script.stat().st_mode | stat.S_IXUSR)
        environment = {**os.environ, "PATH": f"{path}{os.pathsep}{os.environ['PATH']}",
                       **environment}
        if scenario:
            environment["MOBILEDEVICE_SIMULATOR_SCENARIO"] = str(scenario)
        run = subprocess.run(command, cwd=folder, env=environment, stdout=subprocess.PIPE,
                             timeout=TIME_LIMIT)
        self.assertEqual(status, run.returncode)
        return run.stdout.decode().splitlines()
