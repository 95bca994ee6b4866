"""sign.py FILE_OR_FOLDER...: signs these files, and the programs and DLLs in these folders, with
the command that QNRESCUE_SIGN names; does nothing without such a command.

The command gets the path of one file as its last argument and has to sign the file in place. Files
with the same content are signed once.
"""

import os
import pathlib
import shlex
import shutil
import subprocess
import sys

from identity import EXECUTABLES


def sign_file(command, file):
    """Signs a file in place. Throws if the command fails or leaves the file as it was."""
    before = file.read_bytes()
    status = subprocess.run([*command, str(file)], check=False, stdin=subprocess.DEVNULL).returncode
    if status != 0:
        raise SystemExit(f"sign.py: {shlex.join(command)} ended with status {status} for {file}")
    if file.read_bytes() == before:
        raise SystemExit(f"sign.py: {shlex.join(command)} did not change {file}")


def sign(files):
    """Signs the files with the command in QNRESCUE_SIGN, if there is one."""
    command = shlex.split(os.environ.get("QNRESCUE_SIGN", ""))
    signed = {}
    for file in files if command else ():
        content = file.read_bytes()
        if content in signed:
            shutil.copyfile(signed[content], file)
        else:
            sign_file(command, file)
            signed[content] = file


def executables(places):
    """Yields the files among the places, and the programs and DLLs in the folders among them."""
    for place in map(pathlib.Path, places):
        yield from [place] if place.is_file() else sorted(
            path for path in place.rglob("*") if path.suffix in EXECUTABLES)


if __name__ == "__main__":
    sign(executables(sys.argv[1:]))
