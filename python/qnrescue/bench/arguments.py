"""The values of arguments. Each function raises ArgumentTypeError for a text that is not one."""

from __future__ import annotations

import argparse
import contextlib
import math
import os

from qnrescue.commands import clean_ecid


def ecid(text: str) -> str:
    """Returns the ECID of an argument."""
    try:
        return clean_ecid(text)
    except ValueError as fault:
        raise argparse.ArgumentTypeError(str(fault)) from fault


def existing_path(text: str) -> str:
    """Returns the absolute path of a file or folder."""
    if not os.path.exists(text):
        raise argparse.ArgumentTypeError(f"there is no {text!r}")
    return os.path.abspath(text)


def count(text: str) -> int:
    """Returns a whole number, 0 or more."""
    return _whole(text, 0)


def whole_seconds(text: str) -> int:
    """Returns a whole number of seconds, 1 or more, as the tool takes them."""
    return _whole(text, 1)


def _whole(text: str, least: int) -> int:
    with contextlib.suppress(ValueError):
        if (number := int(text)) >= least:
            return number
    raise argparse.ArgumentTypeError(f"not a whole number, {least} or more: {text!r}")


def seconds(text: str) -> float:
    """Returns seconds, 0 or more."""
    with contextlib.suppress(ValueError):
        if 0 <= (number := float(text)) < math.inf:
            return number
    raise argparse.ArgumentTypeError(f"not a number of seconds: {text!r}")


def silence(text: str) -> float:
    """Returns how long a device may report nothing, in seconds: more than 0."""
    if not (number := seconds(text)):
        raise argparse.ArgumentTypeError("a device always reports nothing for a while")
    return number
