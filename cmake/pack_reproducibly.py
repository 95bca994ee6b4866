"""pack_reproducibly.py ZIP: packs the files again in the order of their names, with one date and
nothing of the file system they came from, so that the same files give the same ZIP.

The date is SOURCE_DATE_EPOCH, or that of the commit.
"""

import os
import pathlib
import subprocess
import sys
import time
import zipfile

OLDEST = (1980, 1, 1, 0, 0, 0)  # that a ZIP can hold


def date():
    seconds = os.environ.get("SOURCE_DATE_EPOCH")
    if not seconds:
        try:
            seconds = subprocess.run(["git", "log", "-1", "--format=%ct"], text=True, check=True,
                                     stdout=subprocess.PIPE, cwd=pathlib.Path(__file__).parent
                                     ).stdout
        except (OSError, subprocess.CalledProcessError):
            print("git does not report the date of the commit, so the files are dated 1980; set"
                  " SOURCE_DATE_EPOCH", file=sys.stderr)
            seconds = 0
    return max(OLDEST, time.gmtime(int(seconds))[:6])


def main(path):
    with zipfile.ZipFile(path) as archive:
        files = [(entry.filename, entry.external_attr, archive.read(entry))
                 for entry in archive.infolist() if not entry.is_dir()]
    packed_at = date()
    with zipfile.ZipFile(path, "w") as archive:
        for name, attributes, content in sorted(files):
            entry = zipfile.ZipInfo(name, packed_at)
            entry.external_attr = attributes
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, content)


if __name__ == "__main__":
    main(sys.argv[1])
