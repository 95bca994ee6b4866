"""A bench of simulated devices, with the real tool and the real qnrescue-bench."""

import json
import os
import pathlib
import plistlib
import signal
import subprocess
import time

from harness import BIN, LOCALE, RUNNER, TIME_LIMIT

ROOT = pathlib.Path(__file__).resolve().parents[2]
# The libraries that the package needs are Debian's, which are for Debian's interpreter.
PYTHON = os.environ.get("QNRESCUE_PYTHON", "/usr/bin/python3")


class Bench:
    """A bench with its own folder, whose devices live in a world. Close it at the end."""

    def __init__(self, folder, scenario, world=None):
        self.folder = pathlib.Path(folder)
        scenario_file = self.folder / "scenario.plist"
        scenario_file.write_bytes(plistlib.dumps(scenario))
        self.environment = {
            **os.environ, **LOCALE, "PYTHONPATH": str(ROOT / "python"), "PYTHONUTF8": "1",
            "PYTHONDONTWRITEBYTECODE": "1", "QNRESCUE_BENCH_FOLDER": str(self.folder / "bench"),
            "QNRESCUE_MACHINE_FOLDER": str(self.folder / "machine"),
            "QNRESCUE_TOOL": "\n".join([*RUNNER, str(BIN / "qnrescue.exe")]),
            "MOBILEDEVICE_SIMULATOR_SCENARIO": str(scenario_file),
            "MOBILEDEVICE_SIMULATOR_WORLD": str(world or self.folder / "world.plist"),
        }
        (self.folder / "bench").mkdir()
        self._supervisor = self.start("supervise")

    def start(self, *words, **how):
        """Starts a command of the bench."""
        return subprocess.Popen(
            [PYTHON, "-m", "qnrescue.bench.cli", *map(str, words)], env=self.environment,
            stdin=subprocess.DEVNULL,
            **{"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, **how})

    def run(self, *words, limit=TIME_LIMIT):
        """Runs a command of the bench; returns its status, output and errors."""
        process = self.start(*words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        output, errors = process.communicate(timeout=limit)
        return process.returncode, output.decode(), errors.decode()

    def values(self, *words):
        """Runs a command; returns what it prints as JSON."""
        return [json.loads(line) for line in self.run(*words, "--json")[1].splitlines()]

    def jobs(self):
        """Returns all jobs."""
        return [*self.values("jobs"), *self.values("history", "--limit", "0")]

    def close(self):
        """Cancels what runs, and ends the supervisor."""
        for job in self.values("jobs"):
            self.run("cancel", job["id"])
        self._supervisor.send_signal(signal.SIGINT)
        self._supervisor.wait(TIME_LIMIT)


def wait_until(condition, limit=TIME_LIMIT):
    """Waits until the condition holds, and returns what it returned."""
    end = time.monotonic() + limit
    while not (found := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"does not happen: {condition}")
        time.sleep(0.1)
    return found
