"""Which devices of this machine are being restored, whichever bench, program or user does it."""

from __future__ import annotations

import contextlib
import os
from collections.abc import Iterable, Iterator
from pathlib import Path

import platformdirs

from qnrescue import processes
from qnrescue.file_lock import FileLock
from qnrescue.processes import ProcessIdentity

# Names another folder, for devices that are not those of the machine, such as simulated ones.
FOLDER_VARIABLE = "QNRESCUE_MACHINE_FOLDER"


class Machine:
    """A folder that the supervisors of all users share: with a lock, and with a file for each
    restore, named after the device and the process. The file means nothing when the process has
    ended. Where the folder cannot be used, there is neither.

    What no supervisor has started is found among the processes, as far as the system shows them to
    this user; not with a named folder, as its devices are others."""

    def __init__(self) -> None:
        named = os.environ.get(FOLDER_VARIABLE)
        self._folder = Path(named) if named else _folder_of_machine()
        self._is_named = bool(named)

    @contextlib.contextmanager
    def starting(self) -> Iterator[dict[str, ProcessIdentity] | None]:
        """Gives the devices that are being restored, and lets no other supervisor start a restore
        in the meantime; None if another one does that now."""
        with FileLock(self._folder / "lock") as lock:
            try:
                _make_for_all(self._folder)
                is_mine = lock.try_acquire()
            except OSError:
                is_mine = True
            yield {**self._seen(), **self._noted()} if is_mine else None

    def note(self, device: str, process: ProcessIdentity) -> None:
        """Notes that the process restores the device."""
        with contextlib.suppress(OSError):
            _make_for_all(self._folder)
            file = self._folder / f"{device}-{process.pid}"
            file.write_text(process.created, encoding="utf-8")
            file.chmod(0o644)

    def _noted(self) -> dict[str, ProcessIdentity]:
        found = {}
        for file in self._folder.glob("*-*"):
            with contextlib.suppress(OSError, ValueError):
                device, _, pid = file.name.partition("-")
                process = ProcessIdentity(int(pid), file.read_text(encoding="utf-8"))
                if processes.is_running(process):
                    found[device] = process
                else:
                    file.unlink()
        return found

    def _seen(self) -> dict[str, ProcessIdentity]:
        found = {} if self._is_named else processes.find(_restores)
        return {(processes.value_after(words, "--ecid") or "").upper(): process
                for process, words in found.items()}


def _folder_of_machine() -> Path:
    """Returns a folder in which all users may make files."""
    if os.name == "nt":
        return Path(platformdirs.site_data_dir("qnrescue", appauthor=False), "restores")
    return Path("/var/tmp/qnrescue-restores")


def _make_for_all(folder: Path) -> None:
    folder.parent.mkdir(parents=True, exist_ok=True)
    with contextlib.suppress(FileExistsError):
        folder.mkdir()
        folder.chmod(0o1777)


def _restores(words: Iterable[str]) -> bool:
    return bool({"--restore", "--restore-plist"} & set(words))
