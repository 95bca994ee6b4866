"""The file of the journal: a database that several processes use, and that may be found broken."""

from __future__ import annotations

import contextlib
import itertools
import os
import sqlite3
from collections.abc import Iterator, Mapping, Sequence
from pathlib import Path
from typing import Any

from qnrescue.places import make_shared_file


class JournalError(Exception):
    """The journal cannot be used; the text says why."""


class JournalUnavailable(JournalError):
    """The journal cannot be used now: it is locked, the disk is full, it may not be written. Trying
    again later may help."""


class JournalBroken(JournalError):
    """The file is not a journal, or damaged."""


class Database:
    """A connection, for one thread, to the latest of the files in a folder: `journal-1.sqlite`,
    `journal-2.sqlite`, ... There is more than one if a file was found broken. It is kept as it is,
    and all processes go on with the next one. (Renaming a database in use would damage the new
    one.) Every operation may raise JournalError; after JournalBroken, the next one goes on."""

    def __init__(self, folder: Path, schema: str, version: int, busy_timeout: float) -> None:
        self._folder = folder
        self._schema = schema
        self._version = version
        self._busy_timeout = busy_timeout
        self._number = _latest(folder)
        self._next: str
        self._connection: sqlite3.Connection
        try:
            self._open()
        except JournalBroken:
            self.replace_broken()

    @property
    def path(self) -> Path:
        """Returns the file that is open."""
        return _file(self._folder, self._number)

    def close(self) -> None:
        """Closes the connection."""
        self._connection.close()

    def state(self) -> object:
        """Returns a value that is another one when anything was written, here or elsewhere."""
        version = self.rows("PRAGMA data_version")[0][0]  # of what others have written
        return self.path, version, self._connection.total_changes

    def rows(self, statement: str, values: Sequence[Any] | Mapping[str, Any] = (),
             ) -> list[sqlite3.Row]:
        """Executes the statement and returns its rows."""
        if self._connection.in_transaction:
            return self._execute(statement, values)
        if os.path.exists(self._next):
            self._open_latest()
        with self._broken_is_replaced():
            return self._execute(statement, values)

    @contextlib.contextmanager
    def writing(self) -> Iterator[None]:
        """Makes one transaction of what happens in the context."""
        self.rows("BEGIN IMMEDIATE")
        with self._broken_is_replaced():
            try:
                yield
                self._execute("COMMIT")
            except BaseException:
                with contextlib.suppress(sqlite3.DatabaseError):  # it may be broken
                    self._connection.rollback()
                raise

    def check(self) -> None:
        """Reads the whole file. Raises JournalBroken if it is damaged."""
        (result,) = self.rows("PRAGMA quick_check(1)")[0]
        with self._broken_is_replaced():
            if result != "ok":
                raise JournalBroken(f"{self.path}: {result}")

    @contextlib.contextmanager
    def _broken_is_replaced(self) -> Iterator[None]:
        try:
            yield
        except JournalBroken:
            with contextlib.suppress(JournalError):  # perhaps the next time
                self.replace_broken()
            raise

    def replace_broken(self) -> None:
        """Goes on with the next file, which is made if no other process was faster."""
        self._go_on_with(max(self._number + 1, _latest(self._folder)))

    def _open_latest(self) -> None:
        latest = _latest(self._folder)
        try:
            self._go_on_with(latest)
        except JournalBroken:
            self._go_on_with(latest + 1)

    def _go_on_with(self, number: int) -> None:
        before = self._number, self._next, self._connection
        self._number = number
        try:
            self._open()
        except BaseException:
            self._number, self._next, self._connection = before
            raise
        before[-1].close()

    def _open(self) -> None:
        with _errors_of(self.path):
            make_shared_file(self.path)  # the files that SQLite adds get its permissions
        try:
            self._connect(str(self.path))
        except JournalUnavailable:
            # Who may only read cannot make the files that SQLite uses beside the database. As long
            # as nobody else has made them, nobody writes.
            if os.access(self._folder, os.W_OK):
                raise
            self._connect(f"{self.path.as_uri()}?immutable=1")

    def _connect(self, name: str) -> None:
        with _errors_of(self.path):
            self._connection = sqlite3.connect(name, timeout=self._busy_timeout,
                                               isolation_level=None, uri=name.startswith("file:"))
        self._connection.row_factory = sqlite3.Row
        self._next = str(_file(self._folder, self._number + 1))  # is looked for again and again
        try:
            self._check_version()
            self._execute("PRAGMA journal_mode = WAL")
            self._execute("PRAGMA synchronous = FULL")
            if self._read_version() == 0:
                self._make_tables()
        except BaseException:
            self._connection.close()
            raise

    def _check_version(self) -> None:
        """Raises JournalError if this is the file of another program or version."""
        version = self._read_version()
        if version == 0 and self._execute("SELECT 1 FROM sqlite_master LIMIT 1"):
            if self._read_version() == 0:  # no other process has made the tables in between
                raise JournalBroken(f"{self.path} is a database, but not a journal")
        elif version not in (0, self._version):
            raise JournalError(f"{self.path} has version {version}; this program knows"
                               f" {self._version}")

    def _make_tables(self) -> None:
        self._execute("BEGIN IMMEDIATE")
        try:
            if self._read_version() == 0:  # another process may have been faster
                for statement in self._schema.split(";"):
                    self._execute(statement)
                self._execute(f"PRAGMA user_version = {self._version}")
            self._execute("COMMIT")
        except BaseException:
            self._connection.rollback()
            raise

    def _read_version(self) -> int:
        return int(self._execute("PRAGMA user_version")[0][0])

    def _execute(self, statement: str, values: Sequence[Any] | Mapping[str, Any] = (),
                 ) -> list[sqlite3.Row]:
        with _errors_of(self.path):
            return self._connection.execute(statement, values).fetchall()


def broken_files(folder: Path) -> list[Path]:
    """Returns the files that were found broken and are kept."""
    return [_file(folder, number) for number in range(1, _latest(folder))]


def _file(folder: Path, number: int) -> Path:
    return folder / f"journal-{number}.sqlite"


def _latest(folder: Path) -> int:
    return next(number for number in itertools.count(1)
                if not _file(folder, number + 1).exists())


_BROKEN = (sqlite3.SQLITE_CORRUPT, sqlite3.SQLITE_NOTADB)


@contextlib.contextmanager
def _errors_of(path: Path) -> Iterator[None]:
    try:
        yield
    except sqlite3.DatabaseError as fault:
        # Only the lowest eight bits are the kind of error.
        is_broken = (getattr(fault, "sqlite_errorcode", 0) & 0xFF) in _BROKEN
        kind = JournalBroken if is_broken else JournalUnavailable
        raise kind(f"{path}: {fault}") from fault
    except OSError as fault:
        raise JournalUnavailable(str(fault)) from fault
