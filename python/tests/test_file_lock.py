from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

from bench_of_tests import run_python, wait_until
from qnrescue.file_lock import FileLock

HOLD = """
import subprocess, sys, time
from pathlib import Path
from qnrescue.file_lock import FileLock
lock = FileLock(Path(sys.argv[1]))
assert lock.try_acquire()
child = subprocess.Popen([sys.executable, "-c", "import time; time.sleep(600)"], close_fds=False)
print(child.pid, flush=True)
time.sleep(600)
"""


def test_one_holds_it(tmp_path: Path) -> None:
    with FileLock(tmp_path / "lock") as first, FileLock(tmp_path / "lock") as second:
        assert first.try_acquire()
        assert not second.try_acquire()
        assert not second.acquire(timeout=0.05)
        first.release()
        assert second.acquire(timeout=0.05)
        assert not first.try_acquire()
    assert first.try_acquire()
    first.release()


def test_a_killed_process_releases_it_although_its_children_live(tmp_path: Path) -> None:
    holder = run_python(HOLD, str(tmp_path / "lock"), stdout=subprocess.PIPE)
    child = int(holder.stdout.readline())
    lock = FileLock(tmp_path / "lock")
    try:
        assert not lock.try_acquire()
        holder.kill()
        holder.wait()
        wait_until(lock.try_acquire)
    finally:
        lock.release()
        holder.kill()
        holder.wait()
        holder.stdout.close()
        subprocess.run(["kill", "-9", str(child)], check=False)


def test_the_folder_is_missing(tmp_path: Path) -> None:
    with pytest.raises(OSError):
        FileLock(tmp_path / "missing" / "lock").try_acquire()
