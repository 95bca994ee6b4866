"""The manifests with which winget installs the Windows Installer package, and Scoop the ZIP.

Nobody has published them yet: the address of the files is a placeholder unless QNRESCUE_ADDRESS
names it, and the licence is to be filled in.
"""

import json
import os
import pathlib

ADDRESS = "https://example.invalid/qnrescue"
IDENTIFIER = "QNRescue.QNRescue"
SCHEMA = "1.6.0"
LICENSE = "to be filled in"
SUMMARY = "Lists and restores Apple mobile devices in DFU, Recovery or RestoreOS mode"
NOTES = ("For real devices, install Apple Mobile Device Support from the classic installer of"
         " iTunes for Windows (iTunes64Setup.exe).")

WINGET = {
    "": """\
DefaultLocale: en-US
ManifestType: version
""",
    ".locale.en-US": """\
PackageLocale: en-US
Publisher: QNRescue
PackageName: QNRescue
License: {license}
ShortDescription: {summary}
InstallationNotes: {notes}
ManifestType: defaultLocale
""",
    ".installer": """\
Platform:
- Windows.Desktop
MinimumOSVersion: {oldest_windows}
InstallerType: msi
Scope: machine
InstallModes:
- interactive
- silent
- silentWithProgress
UpgradeBehavior: install
ProductCode: '{product_code}'
Commands:
{commands}
Installers:
- Architecture: x64
  InstallerUrl: {url}
  InstallerSha256: {sha256}
ManifestType: installer
""",
}


def address_of(file_name):
    """Returns where the file can be downloaded, once it is there."""
    return f"{os.environ.get('QNRESCUE_ADDRESS', ADDRESS).rstrip('/')}/{file_name}"


def write_winget(folder, version, package, sha256, product_code, programs, oldest_windows):
    """Writes the three manifests of winget into the folder."""
    folder.mkdir(parents=True)
    values = {
        "license": LICENSE, "summary": SUMMARY, "notes": NOTES, "oldest_windows": oldest_windows,
        "product_code": product_code, "url": address_of(package), "sha256": sha256.upper(),
        "commands": "\n".join(f"- {pathlib.PurePath(each).stem}" for each in programs),
    }
    for kind, text in WINGET.items():
        head = f"PackageIdentifier: {IDENTIFIER}\nPackageVersion: {version}\n"
        tail = f"ManifestVersion: {SCHEMA}\n"
        (folder / f"{IDENTIFIER}{kind}.yaml").write_text(head + text.format(**values) + tail,
                                                         encoding="utf-8")


def write_scoop(folder, version, package, sha256, programs):
    """Writes Scoop's manifest into the folder."""
    folder.mkdir(parents=True)
    manifest = {
        "version": version,
        "description": SUMMARY,
        "license": LICENSE,
        "notes": NOTES,
        "architecture": {"64bit": {"url": address_of(package), "hash": sha256}},
        "bin": programs,
    }
    (folder / "qnrescue.json").write_text(json.dumps(manifest, indent=4) + "\n", encoding="utf-8")
