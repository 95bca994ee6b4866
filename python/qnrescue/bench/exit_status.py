"""The exit statuses of qnrescue-bench."""

from __future__ import annotations

import enum


class ExitStatus(enum.IntEnum):
    """How a command ended."""

    meaning: str

    def __new__(cls, value: int, meaning: str) -> ExitStatus:
        member = int.__new__(cls, value)
        member._value_ = value
        member.meaning = meaning
        return member

    DONE = 0, "done; of restores: all succeeded"
    FAILED = 1, "a restore did not succeed, or the tool could not do what was asked"
    USAGE = 2, "invalid arguments"
    NOTHING = 3, "no such device or job"
    BENCH = 4, "the bench does not work: its folder, its journal, its settings, or the tool does" \
               " not start"
    OUTPUT = 5, "the output cannot be written; jobs go on"
    UNCONFIRMED = 6, "erasing was not confirmed; nothing was ordered"
    STOPPED = 130, "stopped by Control-C; jobs go on"
