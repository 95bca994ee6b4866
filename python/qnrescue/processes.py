"""Processes that outlive the program that starts them: start, recognise, find and end them."""

from __future__ import annotations

import contextlib
import os
import subprocess
import sys
import time
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import IO, Any

import psutil


@dataclass(frozen=True)
class ProcessIdentity:
    """A process. Ids are used again, but not with the same time of creation, which is a text without
    further meaning."""

    pid: int
    created: str


def identify(pid: int) -> ProcessIdentity | None:
    """Returns the identity of a running process; None if there is none."""
    created = _created(pid)
    return None if created is None else ProcessIdentity(pid, created)


def is_running(identity: ProcessIdentity) -> bool:
    """Returns whether the process is there and has not ended."""
    return _created(identity.pid) == identity.created


if sys.platform == "linux":
    _BOOT = Path("/proc/sys/kernel/random/boot_id")

    def _created(pid: int) -> str | None:
        # In ticks since the start of the system: setting the clock does not move it.
        try:
            stat = Path(f"/proc/{pid}/stat").read_bytes()
            boot = _BOOT.read_text().strip()
        except OSError:
            return None
        # The name, in brackets, may hold anything.
        fields = stat[stat.rindex(b")") + 2:].split()
        has_ended = fields[0] in (b"Z", b"X")
        return None if has_ended else f"{boot} {fields[19].decode()}"

else:

    def _created(pid: int) -> str | None:
        try:
            process = psutil.Process(pid)
            if process.status() == psutil.STATUS_ZOMBIE:
                return None
            return repr(process.create_time())
        except psutil.Error:
            return None


def end(identity: ProcessIdentity, timeout: float = 10.0) -> bool:
    """Ends the process at once and waits for that, up to `timeout` seconds. Returns whether it has
    ended."""
    try:
        process = psutil.Process(identity.pid)
        if is_running(identity):
            process.kill()
    except psutil.NoSuchProcess:
        return True
    except psutil.AccessDenied:
        return not is_running(identity)
    limit = time.monotonic() + timeout
    while is_running(identity) and time.monotonic() < limit:
        time.sleep(0.01)
    return not is_running(identity)


# Values of Windows; the module subprocess has them only there.
CREATE_NEW_PROCESS_GROUP = 0x00000200
CREATE_BREAKAWAY_FROM_JOB = 0x01000000
CREATE_NO_WINDOW = 0x08000000


def _ways_to_detach(platform: str) -> list[dict[str, Any]]:
    """Returns how to start a process detached: what to try first, and what if Windows refuses."""
    if platform != "win32":
        return [{"start_new_session": True}]
    # A terminal may end all processes of its job when it closes. Not every job lets one leave.
    alone = CREATE_NEW_PROCESS_GROUP | CREATE_NO_WINDOW
    return [{"creationflags": alone | CREATE_BREAKAWAY_FROM_JOB}, {"creationflags": alone}]


def start_detached(words: Sequence[str], folder: Path, output: IO[bytes] | int,
                   errors: IO[bytes] | int) -> subprocess.Popen[bytes]:
    """Starts a process that neither Control-C in this terminal nor the terminal's end reaches.
    Raises OSError if that fails."""
    *others, last = _ways_to_detach(sys.platform)
    for way in others:
        with contextlib.suppress(PermissionError):
            return _start(words, folder, output, errors, way)
    return _start(words, folder, output, errors, last)


def _start(words: Sequence[str], folder: Path, output: IO[bytes] | int, errors: IO[bytes] | int,
           way: dict[str, Any]) -> subprocess.Popen[bytes]:
    return subprocess.Popen(list(words), cwd=folder, stdin=subprocess.DEVNULL, stdout=output,
                            stderr=errors, **way)


def find(matches: Callable[[Sequence[str]], bool]) -> list[ProcessIdentity]:
    """Returns the other running processes whose words match, as far as the system shows them to
    this user, without those that one of them has started."""
    found: dict[int, tuple[ProcessIdentity, int]] = {}
    for process in psutil.process_iter():
        with contextlib.suppress(psutil.Error):
            if process.pid != os.getpid() and matches(process.cmdline()):
                if identity := identify(process.pid):
                    found[process.pid] = identity, process.ppid()
    return [identity for identity, parent in found.values() if parent not in found]


def follow_each_other(words: Sequence[str], *wanted: str) -> bool:
    """Returns whether these are among the words, one right after the other."""
    size = len(wanted)
    return any(tuple(words[start:start + size]) == wanted
               for start in range(len(words) - size + 1))
