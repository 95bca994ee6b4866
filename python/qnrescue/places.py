"""Where the journal and the files of the jobs are."""

from __future__ import annotations

import contextlib
import os
import stat
import sys
import tempfile
import warnings
from dataclasses import dataclass
from pathlib import Path

import platformdirs

from qnrescue.jobs import check_job_id

# Names another folder.
FOLDER_VARIABLE = "QNRESCUE_BENCH_FOLDER"


class PrivateFolder(UserWarning):
    """The folder of the whole machine cannot be written, so that another user's jobs are not
    known."""


@dataclass(frozen=True)
class BenchFolder:
    """The folder of a bench."""

    path: Path

    @property
    def supervisor_lock(self) -> Path:
        return self.path / "supervisor.lock"

    @property
    def supervisor_log(self) -> Path:
        return self.path / "supervisor.log"

    @property
    def jobs(self) -> Path:
        return self.path / "jobs"

    def job(self, job_id: str) -> JobFolder:
        """Returns the folder of a job, which need not exist."""
        return JobFolder(self.jobs / check_job_id(job_id))


@dataclass(frozen=True)
class JobFolder:
    """The folder of a job."""

    path: Path

    @property
    def record(self) -> Path:
        """Returns the file that says what the job is, in case the journal breaks."""
        return self.path / "job.json"

    @property
    def documents(self) -> Path:
        """Returns the file with all documents of the tool. While it grows, NULs may follow them."""
        return self.path / "documents.plist"

    @property
    def steps(self) -> Path:
        """Returns the file that says when each step began."""
        return self.path / "steps.jsonl"

    @property
    def errors(self) -> Path:
        """Returns the file with what the tool wrote to standard error."""
        return self.path / "errors.txt"

    @property
    def log(self) -> Path:
        """Returns the log file of the restore library."""
        return self.path / "restore.log"


def bench_folder(named: str | Path | None = None) -> BenchFolder:
    """Returns the folder of the bench and makes it: the named one, or that of the environment
    variable, or one for the whole machine, or, with a warning, the user's own. Raises OSError if it
    cannot be made."""
    chosen = named or os.environ.get(FOLDER_VARIABLE)
    if chosen:
        folder = Path(chosen).absolute()
        folder.mkdir(parents=True, exist_ok=True)
        return BenchFolder(folder)
    shared, private = _shared(), _private()
    if _can_write(shared):
        return BenchFolder(shared)
    warnings.warn(PrivateFolder(f"{shared} cannot be written: the jobs are in {private}, and jobs"
                                " of other users are not known"), stacklevel=2)
    private.mkdir(parents=True, exist_ok=True)
    return BenchFolder(private)


def _shared() -> Path:
    return Path(platformdirs.site_data_dir("qnrescue", appauthor=False))


def _private() -> Path:
    return Path(platformdirs.user_data_dir("qnrescue", appauthor=False))


def _can_write(folder: Path) -> bool:
    """Returns whether this user can write in the folder, and the files that others have made."""
    try:
        folder.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryFile(dir=folder):
            pass
    except OSError:
        return False
    return all(map(_may_write, folder.glob("*.sqlite")))


if sys.platform == "win32":
    def _may_write(path: Path) -> bool:
        # os.access knows nothing of access control lists.
        try:
            os.close(os.open(path, os.O_RDWR))
        except OSError:
            return False
        return True
else:
    def _may_write(path: Path) -> bool:
        # Closing a file that it has opened here would release the locks of SQLite.
        return os.access(path, os.W_OK)


def share_like_folder(path: Path) -> None:
    """Lets those use the new file or folder who may use the folder that it is in. Windows does this
    by itself."""
    if os.name == "posix":
        allowed = stat.S_IMODE(path.parent.stat().st_mode) & 0o777
        path.chmod(allowed if path.is_dir() else allowed & 0o666)


def make_shared_file(path: Path) -> None:
    """Makes an empty file, for those who may use the folder, unless there is one. Raises
    OSError."""
    with contextlib.suppress(FileExistsError):
        path.touch(exist_ok=False)
        share_like_folder(path)


def make_shared_folder(path: Path) -> None:
    """Makes a folder, for those who may use the one that it is in, unless there is one. Raises
    OSError."""
    with contextlib.suppress(FileExistsError):
        path.mkdir()
        share_like_folder(path)
