"""Replaces files so that they are whole at every moment."""

from __future__ import annotations

import contextlib
import os
import pathlib


def replace_file(path: pathlib.Path, text: str) -> None:
    """Gives the file this content, in UTF-8. Raises OSError; then it is as it was."""
    new = path.with_name(f"{path.name}.{os.getpid()}.new")
    try:
        new.write_text(text, "utf-8", newline="\n")
        os.replace(new, path)
    except OSError:
        with contextlib.suppress(OSError):
            new.unlink()
        raise
