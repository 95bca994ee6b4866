from __future__ import annotations

import os
import stat
import warnings
from pathlib import Path

import pytest

from qnrescue import places
from qnrescue.places import PrivateFolder, bench_folder


@pytest.fixture
def machine(tmp_path, monkeypatch):
    """Gives a machine with a folder for all and one for the user."""
    monkeypatch.setattr(places.platformdirs, "site_data_dir",
                        lambda name, appauthor: str(tmp_path / "all" / name))
    monkeypatch.setattr(places.platformdirs, "user_data_dir",
                        lambda name, appauthor: str(tmp_path / "mine" / name))
    monkeypatch.delenv("QNRESCUE_BENCH_FOLDER", raising=False)
    return tmp_path


def test_the_folder_of_the_machine(machine: Path) -> None:
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        folder = bench_folder()
    assert folder.path == machine / "all" / "qnrescue"
    assert folder.path.is_dir()
    assert list(folder.path.iterdir()) == []


def test_the_users_own_folder_comes_with_a_warning(machine: Path) -> None:
    (machine / "all").write_text("not a folder")
    with pytest.warns(PrivateFolder, match="jobs of other users are not known"):
        folder = bench_folder()
    assert folder.path == machine / "mine" / "qnrescue"
    assert folder.path.is_dir()


def test_a_journal_of_another_user_that_may_not_be_written(machine: Path, monkeypatch) -> None:
    journal = machine / "all" / "qnrescue" / "journal-1.sqlite"
    journal.parent.mkdir(parents=True)
    journal.touch()
    monkeypatch.setattr(places.os, "access", lambda path, mode: Path(path) != journal)
    with pytest.warns(PrivateFolder):
        assert bench_folder().path == machine / "mine" / "qnrescue"


def test_a_folder_that_is_named(machine: Path, monkeypatch) -> None:
    monkeypatch.setenv("QNRESCUE_BENCH_FOLDER", str(machine / "a" / "b"))
    folder = bench_folder()
    assert folder.path == machine / "a" / "b"
    assert folder.path.is_dir()
    monkeypatch.chdir(machine)
    assert bench_folder("c").path == machine / "c"


def test_a_folder_that_cannot_be_made(machine: Path) -> None:
    (machine / "file").touch()
    with pytest.raises(OSError):
        bench_folder(machine / "file")


def test_files_of_a_job(machine: Path) -> None:
    files = bench_folder(machine).job("order-1")
    assert files.path == machine / "jobs" / "order-1"
    assert {path.parent for path in (files.record, files.documents, files.errors, files.log)} == {
        files.path}
    with pytest.raises(ValueError):
        bench_folder(machine).job("../order-1")


@pytest.mark.skipif(os.name != "posix", reason="permissions of POSIX")
def test_what_is_made_is_shared_like_the_folder(tmp_path: Path) -> None:
    tmp_path.chmod(0o2770)
    (tmp_path / "file").touch(mode=0o600)
    (tmp_path / "folder").mkdir(mode=0o700)
    for name, mode in (("file", 0o660), ("folder", 0o770)):
        places.share_like_folder(tmp_path / name)
        assert stat.S_IMODE((tmp_path / name).stat().st_mode) & 0o777 == mode
