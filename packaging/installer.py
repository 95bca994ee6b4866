"""installer.py FOLDER VERSION MSI: makes the Windows Installer package of the files in the folder.

wixl makes the package; what it cannot express is written into its tables with msibuild: the entry
in PATH, file versions, short names, and a date and a package code that depend on the files alone.
So the same files, with the same dates, give the same package.
"""

import hashlib
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as xml

from identity import EXECUTABLES, UPGRADE_CODE, identifier_of

PROGRAM = "bin/qnrescue.exe"
LANGUAGE = "1033"
# An attribute of the table Upgrade: a package also replaces another build of its own version.
MAXIMUM_INCLUDED = 0x200


def identifier(prefix, path):
    """Returns the key that the tables have for a file or folder."""
    return prefix + hashlib.sha256(path.as_posix().encode()).hexdigest()[:24]


def guid(text):
    """Returns an identifier as the tables have it, always the same for the same text."""
    return f"{{{identifier_of(text)}}}".upper()


def run(*command, **how):
    """Runs a tool to its end, in the time zone of the files' dates; returns what it wrote."""
    return subprocess.run(command, check=True, stdout=subprocess.PIPE,
                          env={**os.environ, "TZ": "UTC"}, **how).stdout


def add(parent, name, **attributes):
    return xml.SubElement(parent, name, attributes)


def add_upgrade(product, version):
    """Lets the package replace every version but a newer one."""
    upgrade = add(product, "Upgrade", Id=UPGRADE_CODE)
    add(upgrade, "UpgradeVersion", Minimum="0.0.0", Maximum=version, IncludeMinimum="yes",
        OnlyDetect="no", Property="REPLACED_VERSION")
    add(upgrade, "UpgradeVersion", Minimum=version, IncludeMinimum="no", OnlyDetect="yes",
        Property="NEWER_VERSION")
    condition = add(product, "Condition",
                    Message="A newer version of QNRescue is installed. Remove it first.")
    condition.text = "NOT NEWER_VERSION"
    sequence = add(product, "InstallExecuteSequence")
    add(sequence, "RemoveExistingProducts", After="InstallValidate")


def add_files(product, files):
    """Adds a component for each file, all in one feature."""
    top = add(product, "Directory", Id="TARGETDIR", Name="SourceDir")
    programs = add(top, "Directory", Id="ProgramFiles64Folder")
    folders = {pathlib.PurePath("."): add(programs, "Directory", Id="INSTALLDIR", Name="QNRescue")}
    feature = add(product, "Feature", Id="Complete", Title="QNRescue", Level="1")

    def element_of(path):
        if path not in folders:
            folders[path] = add(element_of(path.parent), "Directory", Id=identifier("D", path),
                                Name=path.name)
        return folders[path]

    for path in files:
        component = add(element_of(path.parent), "Component", Id=identifier("C", path),
                        Guid=guid(f"component {path.as_posix()}"), Win64="yes")
        add(component, "File", Id=identifier("F", path), Name=path.name, KeyPath="yes",
            Source=str(path))
        add(feature, "ComponentRef", Id=identifier("C", path))


def check_version(version):
    """Ends the program for a version that Windows Installer does not compare with others."""
    numbers = [int(number) for number in re.findall(r"\d+", version)]
    if not re.fullmatch(r"\d+\.\d+\.\d+", version, re.ASCII) or any(
            number > highest for number, highest in zip(numbers, (255, 255, 65535))):
        raise SystemExit(f"installer.py: {version} is no version of a Windows Installer package")


def source_of(files, version, digest):
    """Returns what wixl reads, in the folder of the files."""
    root = xml.Element("Wix", xmlns="http://schemas.microsoft.com/wix/2006/wi")
    product = add(root, "Product", Id=guid(f"product {digest}"), Name="QNRescue", Version=version,
                  Manufacturer="QNRescue", Language=LANGUAGE, UpgradeCode=UPGRADE_CODE)
    add(product, "Package", InstallerVersion="500", Compressed="yes", InstallScope="perMachine",
        Description="QNRescue", Comments=f"QNRescue {version}")
    add(product, "Media", Id="1", Cabinet="qnrescue.cab", EmbedCab="yes")
    add(product, "Property", Id="ARPNOMODIFY", Value="1")
    add(product, "Property", Id="REBOOT", Value="ReallySuppress")
    condition = add(product, "Condition", Message="QNRescue needs Windows 10 or later.")
    # Windows Installer sees every later version as 603, too.
    condition.text = "Installed OR VersionNT >= 603"
    add_upgrade(product, version)
    add_files(product, files)
    return xml.tostring(root, encoding="utf-8", xml_declaration=True)


def name_with_short_name(name, number):
    """Returns the name as the tables have it: behind a name of the old form if it has another."""
    if re.fullmatch(r"[\w-]{1,8}(\.\w{1,3})?", name, re.ASCII):
        return name
    suffix = re.sub(r"\W", "", pathlib.PurePath(name).suffix, flags=re.ASCII)[:3]
    return f"QN{number:06}{'.' if suffix else ''}{suffix}|{name}"


class Tables:
    """The tables of a package, as texts; the first three lines of each say what its columns are."""

    def __init__(self, package, folder):
        self.package = package
        self.folder = folder

    def rows(self, table):
        """Returns the heading and the rows, each as its fields."""
        text = run("msiinfo", "export", self.package, table).decode("ascii")
        lines = [line.split("\t") for line in text.split("\r\n") if line]
        return lines[:3], lines[3:]

    def write(self, table, heading, rows):
        file = self.folder / f"{table}.idt"
        lines = ["\t".join(row) + "\r\n" for row in [*heading, *rows]]
        file.write_bytes("".join(lines).encode("ascii"))
        run("msibuild", self.package, "-i", file)

    def rewrite(self, table, change):
        """Replaces the rows by what a function makes of them."""
        heading, rows = self.rows(table)
        self.write(table, heading, change(rows))


def complete(tables, paths, version, digest, date):
    """Writes what wixl leaves out."""
    versioned = {key for key, path in paths.items() if path.suffix in EXECUTABLES}

    def files(rows):
        for row in rows:
            row[2] = name_with_short_name(paths[row[0]].name, int(row[7]))
            if row[0] in versioned:
                row[4:6] = f"{version}.0", LANGUAGE
        return rows

    def folders(rows):
        for number, row in enumerate(rows):
            if row[2] not in (".", "SourceDir"):
                row[2] = name_with_short_name(row[2], number)
        return rows

    def upgrades(rows):
        for row in rows:
            if row[6] == "REPLACED_VERSION":
                row[4] = str(int(row[4]) | MAXIMUM_INCLUDED)
        return rows

    def summary(rows):
        new = {"9": guid(f"package {digest} {date}"), "12": date, "13": date}
        return [[key, new.get(key, value)] for key, value in rows]

    tables.rewrite("File", files)
    tables.rewrite("Directory", folders)
    tables.rewrite("Upgrade", upgrades)
    # Windows compares these files by their versions.
    tables.rewrite("MsiFileHash", lambda rows: [row for row in rows if row[0] not in versioned])
    tables.write("Environment", [["Environment", "Name", "Value", "Component_"],
                                 ["s72", "l255", "L255", "s72"], ["Environment", "Environment"]],
                 # In the machine's PATH (*), made while installing (=), removed afterwards (-).
                 [["Path", "=-*PATH", f"[~];[{identifier('D', pathlib.PurePath('bin'))}]",
                   identifier("C", pathlib.PurePath(PROGRAM))]])
    tables.rewrite("InstallExecuteSequence", lambda rows: [
        *rows, ["RemoveEnvironmentStrings", "", "3300"], ["WriteEnvironmentStrings", "", "5200"]])
    tables.rewrite("_SummaryInformation", summary)


def digest_of(folder, files, version):
    """Returns a text that differs where the package does."""
    digest = hashlib.sha256(version.encode())
    for path in files:
        content = (folder / path).read_bytes()
        digest.update(f"\0{path.as_posix()}\0{len(content)}\0".encode() + content)
    return digest.hexdigest()


def make_installer(folder, version, package):
    """Makes the package of the files in the folder; its date is that of the newest file."""
    check_version(version)
    files = sorted(path.relative_to(folder) for path in folder.rglob("*") if path.is_file())
    digest = digest_of(folder, files, version)
    newest = max((folder / path).stat().st_mtime for path in files)
    with tempfile.TemporaryDirectory() as work:
        source = pathlib.Path(work, "source.wxs")
        source.write_bytes(source_of(files, version, digest))
        run("wixl", "--arch", "x64", "--output", package, source, cwd=folder)
        complete(Tables(package, pathlib.Path(work)),
                 {identifier("F", path): path for path in files}, version, digest,
                 time.strftime("%Y/%m/%d %H:%M:%S", time.gmtime(newest)))


if __name__ == "__main__":
    make_installer(pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3]).resolve())
