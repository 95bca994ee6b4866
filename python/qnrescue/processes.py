"""Processes that outlive the program that starts them: start, recognise, find and end them."""

from __future__ import annotations

import contextlib
import os
import subprocess
import sys
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import IO, TypedDict

import psutil


@dataclass(frozen=True)
class ProcessIdentity:
    """A process. Ids are used again, but not with the same time of creation, which is a text
    without further meaning."""

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


def kill(identity: ProcessIdentity) -> None:
    """Ends the process at once, if it runs. It may take a moment to be gone, and stays if it
    belongs to another user."""
    with contextlib.suppress(psutil.Error):
        process = psutil.Process(identity.pid)
        if is_running(identity):
            process.kill()


# Values of Windows; the module subprocess has them only there.
CREATE_NEW_PROCESS_GROUP = 0x00000200
CREATE_BREAKAWAY_FROM_JOB = 0x01000000
CREATE_NO_WINDOW = 0x08000000


class _Way(TypedDict, total=False):
    start_new_session: bool
    creationflags: int


def _ways_to_detach(platform: str) -> list[_Way]:
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
           way: _Way) -> subprocess.Popen[bytes]:
    return subprocess.Popen(list(words), cwd=folder, stdin=subprocess.DEVNULL, stdout=output,
                            stderr=errors, **way)


def find(matches: Callable[[Sequence[str]], bool]) -> dict[ProcessIdentity, list[str]]:
    """Returns the other running processes whose words match, with these, as far as the system shows
    them to this user; without those that one of them has started."""
    found: dict[int, tuple[ProcessIdentity, list[str], int]] = {}
    for process in psutil.process_iter():
        with contextlib.suppress(psutil.Error):
            words = process.cmdline()
            if process.pid != os.getpid() and matches(words):
                if identity := identify(process.pid):
                    found[process.pid] = identity, words, process.ppid()
    return {identity: words for identity, words, parent in found.values() if parent not in found}


def value_after(words: Sequence[str], option: str) -> str | None:
    """Returns the word after an option; None without it."""
    position = words.index(option) + 1 if option in words else len(words)
    return words[position] if position < len(words) else None
