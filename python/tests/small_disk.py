"""A small file system that becomes full, for tests. Only root can mount one."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path


def mount(path: Path) -> str:
    """Mounts a file system of 12 MiB at a new folder; returns why that is not possible here."""
    if sys.platform != "linux" or os.getuid() != 0:
        return "only root can mount a file system"
    path.mkdir()
    run = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=12m", "tmpfs", str(path)],
                         capture_output=True, check=False)
    return f"no file system can be mounted here: {run.stderr.decode()}" if run.returncode else ""


def unmount(path: Path) -> None:
    """Ends what `mount` has begun, also if files are open."""
    subprocess.run(["umount", "--lazy", str(path)], check=True)


def fill(path: Path) -> Path:
    """Fills the file system up to the last byte; returns the file to remove."""
    filler = path / "filler"
    with filler.open("wb", buffering=0) as file:
        for size in (1 << 20, 1 << 12, 1):
            try:
                while True:
                    file.write(bytes(size))
            except OSError:
                pass
    return filler
