"""Builds what a mutant touches, and runs the tests that should notice it."""

import contextlib
import os
import re
import subprocess
import sys
import time
from dataclasses import dataclass

from mutant import PatchFault

# Quick to build; a mutant may leave something unused.
_UNOPTIMISED = ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0"]
SETTINGS = {
    "native": _UNOPTIMISED,
    "native-asan": [],
    "windows": [*_UNOPTIMISED, "-DQNRESCUE_BENCHMARKS=OFF"],
}
# What the tests of whole programs run.
PROGRAMS = ("qnrescue", "faults_setup", "pipe_host", "library_host", "console_host",
            "needy_mobile_device")
MODULES = "end_to_end."


@dataclass
class Outcome:
    """What became of tests: `by` is the first that failed, or that did not end in time."""

    passed: bool
    by: str = None
    timed_out: bool = False
    output: str = ""


def _run(command, limit=None, **options):
    """The status and the output; the status is None where the time limit has passed."""
    process = subprocess.Popen(
        command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        text=True, errors="replace", start_new_session=True, **options)
    try:
        output, _ = process.communicate(timeout=limit)
        return process.returncode, output
    except subprocess.TimeoutExpired:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, 9)
        return None, process.communicate()[0]


class Builds:
    """The builds of a working copy."""

    def __init__(self, copy, smallest_limit):
        self.copy = copy
        self.smallest_limit = smallest_limit  # seconds
        self.limits = {}  # by check
        self.configured = set()

    def configure(self, build):
        if build not in SETTINGS:
            raise PatchFault(f"there is no build {build!r}")
        if build in self.configured:
            return
        status, output = _run(["cmake", "--preset", build, *SETTINGS[build],
                               "-DQNRESCUE_WARNINGS_AS_ERRORS=OFF"], cwd=self.copy.tree)
        if status != 0:
            raise PatchFault(f"{build} cannot be configured:\n{output}")
        self.configured.add(build)

    def build(self, check):
        self.configure(check.build)
        targets = PROGRAMS if check.program.startswith(MODULES) else (check.program,)
        status, output = _run(["cmake", "--build", "--preset", check.build, "--target", *targets],
                              cwd=self.copy.tree)
        if status != 0:
            raise PatchFault(f"does not build:\n{output}")

    def try_unmutated(self, check):
        """The tests must exist and pass as long as nothing is broken."""
        self.build(check)
        self._require_names(check)
        started = time.monotonic()
        outcome = self.run(check)
        if not outcome.passed:
            raise PatchFault(f"fails without a mutant, in {outcome.by}:\n{outcome.output}")
        self.limits[check] = self.smallest_limit + 5 * (time.monotonic() - started)

    def run(self, check):
        return (self._run_module if check.program.startswith(MODULES) else self._run_unit)(check)

    # --- Unit-test programs

    def _program(self, check):
        path = self._folder(check) / check.program
        if check.build == "windows":
            return [str(self.copy.tree / "scripts" / "wine"), f"{path}.exe"]
        return [str(path)]

    def _folder(self, check):
        return self.copy.tree / "build" / check.build / "bin"

    def _require_names(self, check):
        if check.program.startswith(MODULES):
            return
        for name in check.names or ("*",):
            _, output = _run([*self._program(check), "--gtest_list_tests", f"--gtest_filter={name}"],
                             self.smallest_limit, env=_environment())
            if not re.search(r"^  \w", output, re.MULTILINE):
                raise PatchFault(f"{check.program} has no test {name}")

    def _run_unit(self, check):
        chosen = [f"--gtest_filter={':'.join(check.names)}"] if check.names else []
        status, output = _run([*self._program(check), "--gtest_fail_fast", *chosen],
                              self.limits.get(check), env=_environment())
        if status == 0:
            return Outcome(True)
        failed = re.search(r"\[  FAILED  \] (\w[^\s,]*)", output)
        begun = re.findall(r"\[ RUN      \] (\S+)", output)
        by = failed[1] if failed else f"{begun[-1]} ({_end(status)})" if begun else None
        if "[  PASSED  ]" in output and not failed:
            by = f"{check.program} ({_end(status)} after its tests)"
        return Outcome(False, by or f"{check.program} ({_end(status)})", status is None, output)

    # --- Modules of Python tests

    def _run_module(self, check):
        module = check.program[len(MODULES):]
        chosen = [f"{module}.{name}" for name in check.names] or [module]
        environment = _environment(QNRESCUE_BIN=str(self._folder(check)),
                                   QNRESCUE_RUNNER=str(self.copy.tree / "scripts" / "wine"))
        status, output = _run([sys.executable, "-B", "-m", "unittest", "--verbose", "--failfast",
                               *chosen], self.limits.get(check), env=environment,
                              cwd=self.copy.tree / "tests" / "end_to_end")
        if status == 0 and re.search(r"^Ran [1-9]", output, re.MULTILINE):
            return Outcome(True)
        failed = re.search(r"^(?:FAIL|ERROR): (\w+) \(([\w.]+)\)", output, re.MULTILINE)
        by = f"{module}: {failed[1]}" if failed else f"{module} ({_end(status)})"
        return Outcome(False, by, status is None, output)


def _end(status):
    if status is None:
        return "out of time"
    return f"signal {-status}" if status < 0 else f"status {status}"


def _environment(**more):
    return {**os.environ, "GTEST_COLOR": "no", **more}


@contextlib.contextmanager
def wine_server(root):
    """Keeps one Wine server for all Windows programs that are started meanwhile."""
    os.environ.setdefault("WINEPREFIX", str(root / "build" / "wine"))
    with subprocess.Popen([root / "scripts" / "with-wine-server", "sh", "-c", "echo; cat"],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as server:
        server.stdout.readline()
        yield
        server.stdin.close()
