"""Where the journal and the files of the jobs are."""

from __future__ import annotations

import os
import stat
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
    def is_default(self) -> bool:
        """Returns whether nobody named the folder. A named one is a bench with devices of its own,
        such as one of a test."""
        return self.path in (_shared(), _private())

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
    return all(os.access(path, os.W_OK) for path in folder.glob("*.sqlite"))


def share_like_folder(path: Path) -> None:
    """Lets those use the new file or folder who may use the folder that it is in. Windows does this
    by itself."""
    if os.name == "posix":
        allowed = stat.S_IMODE(path.parent.stat().st_mode) & 0o777
        path.chmod(allowed if path.is_dir() else allowed & 0o666)
