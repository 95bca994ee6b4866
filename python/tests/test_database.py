from __future__ import annotations

import os
import sqlite3
import stat
import subprocess
import sys
import tempfile
import threading
from pathlib import Path

import pytest

from bench_of_tests import run_python
from qnrescue.database import (Database, JournalBroken, JournalUnavailable, broken_files)

SCHEMA = "CREATE TABLE words (word TEXT); CREATE INDEX by_word ON words (word);"


def database(folder, busy_timeout: float = 5.0) -> Database:
    return Database(folder, SCHEMA, 1, busy_timeout)


def words(one: Database) -> list[str]:
    return [row["word"] for row in one.rows("SELECT word FROM words ORDER BY rowid")]


def add(one: Database, *more: str) -> None:
    with one.writing():
        for word in more:
            one.rows("INSERT INTO words VALUES (?)", (word,))


def test_what_was_written_is_there(tmp_path) -> None:
    one = database(tmp_path)
    add(one, "a", "b")
    one.close()
    another = database(tmp_path)
    assert words(another) == ["a", "b"]
    assert another.rows("PRAGMA journal_mode")[0][0] == "wal"
    assert another.rows("PRAGMA synchronous")[0][0] == 2  # full
    another.check()
    another.close()


def test_a_transaction_is_whole_or_not_there(tmp_path) -> None:
    one = database(tmp_path)
    with pytest.raises(ZeroDivisionError):
        with one.writing():
            one.rows("INSERT INTO words VALUES ('half')")
            raise ZeroDivisionError
    assert words(one) == []
    add(one, "whole")
    assert words(one) == ["whole"]
    one.close()


def test_a_journal_that_is_locked_is_not_available_now(tmp_path) -> None:
    one, another = database(tmp_path), database(tmp_path, busy_timeout=0.1)
    with one.writing():
        with pytest.raises(JournalUnavailable, match="locked"):
            add(another, "b")
        assert words(another) == []
    add(another, "b")
    assert words(one) == ["b"]
    one.close()
    another.close()


def spoil_rows(path) -> None:
    """Damages the pages after the first."""
    connection = sqlite3.connect(path)
    connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    connection.close()
    with path.open("r+b") as file:
        file.seek(4096)
        file.write(b"\xa5" * (path.stat().st_size - 4096))


def filled(path) -> None:
    one = database(path.parent)
    add(one, *(f"word {number}" for number in range(2000)))
    one.close()


@pytest.mark.parametrize("content", [b"rubbish" * 1000, b"\0" * 8192, b"SQLite format 3\0" * 256],
                         ids=["rubbish", "zeros", "head"])
def test_a_file_that_is_no_journal_is_kept(tmp_path, content: bytes) -> None:
    broken = tmp_path / "journal-1.sqlite"
    broken.write_bytes(content)
    one = database(tmp_path)
    add(one, "new")
    assert one.path == tmp_path / "journal-2.sqlite"
    assert broken_files(tmp_path) == [broken]
    one.close()
    assert broken.read_bytes() == content
    assert words(database(tmp_path)) == ["new"]


def test_a_database_of_another_program_is_kept(tmp_path) -> None:
    connection = sqlite3.connect(tmp_path / "journal-1.sqlite")
    connection.execute("CREATE TABLE theirs (x)")
    connection.close()
    content = (tmp_path / "journal-1.sqlite").read_bytes()
    assert words(database(tmp_path)) == []
    assert (tmp_path / "journal-1.sqlite").read_bytes() == content


@pytest.mark.parametrize("use", [lambda one: one.check(), lambda one: words(one),
                                 lambda one: replace_words(one)])
def test_damage_is_found_when_the_journal_is_used(tmp_path, use) -> None:
    path = tmp_path / "journal-1.sqlite"
    filled(path)
    spoil_rows(path)
    spoilt = path.read_bytes()
    one = database(tmp_path)
    with pytest.raises(JournalBroken):
        use(one)
    add(one, "new")
    assert words(one) == ["new"]
    assert one.path.name == "journal-2.sqlite"
    one.close()
    assert path.read_bytes() == spoilt


def replace_words(one: Database) -> None:
    """Changes all rows."""
    with one.writing():
        one.rows("UPDATE words SET word = word || '!'")


def test_a_new_file_that_cannot_be_opened(tmp_path) -> None:
    """The old one is used until that is possible."""
    one = database(tmp_path)
    add(one, "old")
    following = tmp_path / "journal-2.sqlite"
    following.mkdir()
    for _ in range(2):
        with pytest.raises(JournalUnavailable):
            words(one)
    following.rmdir()
    assert words(one) == ["old"]


def test_a_new_file_that_is_broken_too(tmp_path) -> None:
    one = database(tmp_path)
    (tmp_path / "journal-2.sqlite").write_bytes(b"rubbish" * 1000)
    assert words(one) == []
    assert one.path.name == "journal-3.sqlite"


def test_everybody_goes_on_with_the_new_file(tmp_path) -> None:
    one, another = database(tmp_path), database(tmp_path)
    add(one, "old")
    assert words(another) == ["old"]
    one.replace_broken()
    add(one, "new")
    assert words(another) == ["new"]
    add(another, "too")
    assert words(one) == ["new", "too"]
    another.close()
    one.close()
    assert words(database(tmp_path)) == ["new", "too"]


def test_one_new_file_is_enough_for_all(tmp_path) -> None:
    (tmp_path / "journal-1.sqlite").write_bytes(b"rubbish" * 1000)
    databases: list[Database] = []
    start = threading.Barrier(8)

    def open_it() -> None:
        start.wait()
        one = database(tmp_path, 60)
        add(one, "mine")
        databases.append(one)
        one.close()

    threads = [threading.Thread(target=open_it) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert {one.path.name for one in databases} == {"journal-2.sqlite"}
    assert words(database(tmp_path)) == ["mine"] * 8


@pytest.mark.skipif(os.name != "posix", reason="permissions of POSIX")
@pytest.mark.parametrize("mode", [0o700, 0o750, 0o770, 0o777])
def test_who_may_use_the_folder_may_use_the_journal(tmp_path, mode: int) -> None:
    folder = tmp_path / "bench"
    folder.mkdir()
    folder.chmod(mode)
    one = database(folder)
    add(one, "a")
    modes = {stat.S_IMODE(path.stat().st_mode) for path in folder.glob("journal-1*")}
    assert modes == {mode & 0o666}
    one.close()


AS_NOBODY = """
import os, sys
from pathlib import Path
from qnrescue.database import Database, JournalUnavailable
os.setgid(65534)
os.setuid(65534)
try:
    one = Database(Path(sys.argv[1]), sys.argv[2], 1, 1.0)
    print("words", [row[0] for row in one.rows("SELECT word FROM words")])
    with one.writing():
        one.rows("INSERT INTO words VALUES ('x')")
except JournalUnavailable as fault:
    print("unavailable:", fault)
"""


def as_nobody(folder) -> str:
    process = run_python(AS_NOBODY, str(folder), SCHEMA, stdout=subprocess.PIPE)
    return process.communicate(timeout=60)[0].decode()


@pytest.fixture
def read_only_folder():
    """Gives a folder in which others may only read."""
    if sys.platform != "linux" or os.getuid() != 0:
        pytest.skip("only root can become another user")
    with tempfile.TemporaryDirectory() as name:  # the folders of pytest are for the user alone
        folder = Path(name)
        folder.chmod(0o755)
        yield folder


def test_who_may_only_read_sees_what_is_written(read_only_folder) -> None:
    one = database(read_only_folder)
    add(one, "a")
    said = as_nobody(read_only_folder)
    assert said.startswith("words ['a']\nunavailable: ") and "readonly" in said
    add(one, "b")
    one.close()
    said = as_nobody(read_only_folder)
    assert said.startswith("words ['a', 'b']\nunavailable: ") and "readonly" in said


def test_who_may_only_read_makes_no_journal(read_only_folder) -> None:
    said = as_nobody(read_only_folder)
    assert said.startswith("unavailable: ") and "Permission denied" in said
    assert list(read_only_folder.iterdir()) == []
