"""release.py ZIP LIBRARIES FOLDER: makes what is handed out beside the ZIP of CPack, all in the
folder: the Windows Installer package, the bill of materials, the notices, the manifests of package
managers, and the checksums of all files that are there then.

LIBRARIES is the list of what is linked in, which CMake writes into the build folder.
"""

import calendar
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import zipfile

from bill_of_materials import write_bill_of_materials
from installer import make_installer
from package_managers import write_scoop, write_winget
from sign import sign

# What winget compares with the version of Windows; docs/installation.md says where it is from.
OLDEST_WINDOWS = "10.0.18362.0"


def unpack(zip_file, folder):
    """Unpacks the ZIP with the dates of its files, which are in UTC. Returns the newest, in seconds
    since 1970."""
    newest = 0
    with zipfile.ZipFile(zip_file) as archive:
        for entry in archive.infolist():
            seconds = calendar.timegm(entry.date_time)
            os.utime(archive.extract(entry, folder), (seconds, seconds))
            newest = max(newest, seconds)
    return newest


def sha256_of(file):
    return hashlib.sha256(file.read_bytes()).hexdigest()


def product_code_of(package):
    """Returns what Windows knows the installed package by."""
    rows = subprocess.run(["msiinfo", "export", package, "Property"], check=True, text=True,
                          stdout=subprocess.PIPE).stdout.splitlines()
    return dict(row.split("\t") for row in rows[3:])["ProductCode"]


def write_manifests(folder, version, zip_file, package, programs):
    write_winget(folder / "winget", version, package.name, sha256_of(package),
                 product_code_of(package), programs, OLDEST_WINDOWS)
    write_scoop(folder / "scoop", version, zip_file.name, sha256_of(zip_file), programs)


def write_checksums(folder):
    """Writes the checksums of all files in the folder, as sha256sum reads them."""
    files = sorted(path for path in folder.rglob("*") if path.is_file())
    (folder / "SHA256SUMS").write_text("".join(
        f"{sha256_of(file)}  {file.relative_to(folder).as_posix()}\n" for file in files))


def check_notices(folder, libraries):
    """Ends the program if the notice of a library that is linked in is missing."""
    lacking = [each["name"] for each in libraries if not (folder / each["name"]).is_dir()]
    if lacking:
        raise SystemExit(f"release.py: the notices of these are missing: {', '.join(lacking)}")


def make_release(zip_file, list_of_libraries, folder):
    """Makes everything in the folder from the ZIP, which is copied there if it is elsewhere."""
    libraries = json.loads(list_of_libraries.read_text(encoding="utf-8"))
    version = zip_file.name.split("-")[1]
    if zip_file.parent != folder:
        folder.mkdir(parents=True)
        zip_file = pathlib.Path(shutil.copy(zip_file, folder))
    package = zip_file.with_suffix(".msi")
    with tempfile.TemporaryDirectory() as unpacked:
        content = pathlib.Path(unpacked)
        seconds = unpack(zip_file, content)
        check_notices(content / "licenses", libraries)
        make_installer(content, version, package)
        sign([package])
        write_bill_of_materials(zip_file.with_suffix(".cdx.json"), zip_file, content, version,
                                libraries, seconds)
        shutil.copytree(content / "licenses", folder / "licenses")
        programs = sorted(path.relative_to(content).as_posix()
                          for path in (content / "bin").glob("*.exe"))
    write_manifests(folder, version, zip_file, package, programs)
    write_checksums(folder)


if __name__ == "__main__":
    make_release(*(pathlib.Path(argument).resolve() for argument in sys.argv[1:]))
