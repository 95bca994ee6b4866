"""A bench with the double of the tool, for tests."""

from __future__ import annotations

import os
import subprocess
import sys
import time
from collections.abc import Callable
from pathlib import Path

from qnrescue import processes
from qnrescue.desk import Desk
from qnrescue.file_lock import FileLock
from qnrescue.jobs import Job, JobOrder

PACKAGE = Path(__file__).parents[1]
FAKE_TOOL = (sys.executable, str(Path(__file__).with_name("fake_tool.py")))

# Far above what anything here needs.
TIME_LIMIT = 300.0


def wait_until(condition: Callable[[], object]) -> None:
    """Waits until the condition holds. Raises AssertionError if that takes too long."""
    limit = time.monotonic() + TIME_LIMIT
    while not condition():
        assert time.monotonic() < limit, "it takes too long"
        time.sleep(0.02)


class TestBench:
    """A folder with a journal, bundles and what the double of the tool has done."""

    __test__ = False

    def __init__(self, path: Path) -> None:
        self.path = path
        self.folder = path / "bench"
        self.desk = Desk(self.folder)
        self.count = 0

    def ecid(self) -> str:
        """Returns a new ECID."""
        self.count += 1
        return f"{self.count:016X}"

    def order(self, *actions: str, device: str = "", **how: object) -> JobOrder:
        """Returns an order for which the double does these actions."""
        device = device or self.ecid()
        bundle = self.path / f"{device}-{self.count}.ipsw"
        self.count += 1
        bundle.write_text("\n".join(actions))
        return JobOrder(device, str(bundle), tool=FAKE_TOOL, **how)  # type: ignore[arg-type]

    def restore(self, *actions: str, **how: object) -> Job:
        """Orders a restore, and returns its job when it has ended."""
        return self.end_of(self.desk.order(self.order(*actions, **how)).id)

    def job(self, job_id: str) -> Job:
        """Returns the job as it is now."""
        return self.desk.journal.job(job_id)

    def end_of(self, job_id: str) -> Job:
        """Returns the job when it has ended."""
        job = self.desk.wait(job_id, TIME_LIMIT)
        assert job.state.is_end, job
        return job

    def starts(self) -> list[str]:
        """Returns the ECIDs of the tools that were started."""
        path = self.path / "starts"
        return path.read_text().split() if path.exists() else []

    def tools(self) -> list[processes.ProcessIdentity]:
        """Returns the tools that run."""
        return list(processes.find(lambda words: any(
            word.startswith(str(self.path)) and word.endswith(".ipsw") for word in words)))

    def supervisors(self) -> list[processes.ProcessIdentity]:
        """Returns the supervisors that run."""
        return list(processes.find(lambda words: "qnrescue.supervisor" in words
                                   and str(self.folder) in words))

    def is_supervised(self) -> bool:
        """Returns whether a supervisor is at work."""
        with FileLock(self.desk.folder.supervisor_lock) as lock:
            return not lock.try_acquire()

    def kill_supervisors(self) -> None:
        """Kills whatever supervises."""
        for process in self.supervisors():
            processes.kill(process)
        wait_until(lambda: not self.supervisors())

    def go(self, name: str = "go") -> None:
        """Lets the tools go on that wait for this file."""
        (self.path / name).touch()

    def gate(self, name: str = "go") -> str:
        """Returns the action that waits for `go`."""
        return f"wait-for {self.path / name}"

    def close(self) -> None:
        """Ends everything."""
        self.kill_supervisors()
        for process in self.tools():
            processes.kill(process)
        self.desk.close()


def run_python(program: str, *words: str, **how: object) -> subprocess.Popen[bytes]:
    """Starts a Python program that can import the package and this module."""
    path = os.pathsep.join((str(PACKAGE), str(Path(__file__).parent)))
    return subprocess.Popen([sys.executable, "-c", program, *words],
                            env={**os.environ, "PYTHONPATH": path}, **how)  # type: ignore


def spoil(path: Path) -> bytes:
    """Overwrites the whole journal."""
    content = b"\xa5" * max(8192, path.stat().st_size)
    path.write_bytes(content)
    for part in (path.with_name(path.name + ending) for ending in ("-wal", "-shm")):
        if part.exists():  # as long as somebody uses the journal
            part.write_bytes(b"\xa5" * part.stat().st_size)
    return content
