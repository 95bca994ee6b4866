"""A bench on a table top: a small program in place of the tool, and devices that are files.

    tabletop = Tabletop(folder)
    tabletop.plug_in(ECID, location=0x14200000, reports=[...])
    run([*tabletop.command, "--list-devices"])
"""

import contextlib
import json
import os
import pathlib
import plistlib
import sys
import time

STEP = {"Status": "Restoring", "Operation": 5, "Progress": 9,
        "QN_OperationName": "Sending ramdisk to device"}
BOOTING = {"Status": "Restoring", "Operation": 9, "Progress": 20, "QN_OperationName": "Booting"}
DONE = {"Status": "Successful", "Operation": 0, "Progress": 100}
FAILED = {"Status": "Failed", "Operation": 5, "Progress": 9, "Error": {
    "Domain": "AMRestoreErrorDomain", "Code": 28, "Description": "Timeout waiting for NAND"}}


class Tabletop:
    """The devices of a bench. `reports` of a device are what its restores report: dictionaries, or
    a number of seconds to wait; a list of lists is for one restore after the other."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        (self.folder / "devices").mkdir(parents=True)
        (self.folder / "looks").touch()
        self.bench = self.folder / "bench"
        self.bundle = self.folder / "update.ipsw"
        self.bundle.touch()
        self.command = [sys.executable, __file__, str(self.folder)]

    def plug_in(self, ecid, *, location=0, serial=None, reports=(STEP, DONE)):
        new = self.folder / "new"
        new.write_text(json.dumps({"location": location, "serial": serial, "reports": reports}))
        os.replace(new, self.folder / "devices" / ecid)

    def unplug(self, ecid):
        (self.folder / "devices" / ecid).unlink(missing_ok=True)

    def close(self):
        """Ends the supervisor and the tools."""
        import psutil  # here, since it takes longer than all else that the tool does
        for process in psutil.process_iter():
            with contextlib.suppress(psutil.Error):
                if any(word.startswith(str(self.folder)) for word in process.cmdline()):
                    process.kill()
                    while process.status() != psutil.STATUS_ZOMBIE:  # its parent may never ask
                        time.sleep(0.01)

    def restores(self):
        """The ECIDs of the restores that were started, in order, with "!" if they erase, and
        with "*" if a file has their options."""
        try:
            return (self.folder / "restores").read_text().split()
        except FileNotFoundError:
            return []

    def looks(self):
        """How often the devices were listed."""
        return (self.folder / "looks").stat().st_size


def tell(document_type, value):
    sys.stdout.buffer.write(plistlib.dumps({"Type": document_type, "Value": value}) + b"\n")
    sys.stdout.buffer.flush()


def fail(code, reason):
    tell("InternalError", {"Domain": "qnrescue", "Code": code, "Description": "D",
                           "FailureReason": reason})
    sys.exit(code)


def restore(folder, ecid, device):
    log = folder / "restores"
    before = log.read_text().split() if log.exists() else []
    with log.open("a") as file:
        file.write(ecid + ("!" if "--erase" in sys.argv else "")
                   + ("*" if "--restore-plist" in sys.argv else "") + "\n")
    reports = device["reports"]
    if reports and isinstance(reports[0], list):
        done = sum(each.rstrip("!*") == ecid for each in before)
        reports = reports[min(done, len(reports) - 1)]
    for report in reports:
        if isinstance(report, (int, float)):
            time.sleep(report)
        else:
            tell("RestoreStatus", report)
            if report.get("Status") == "Successful":
                (folder / "devices" / ecid).unlink(missing_ok=True)  # it boots
                return
    time.sleep(600)


def main():
    folder, option = pathlib.Path(sys.argv[1]), sys.argv[2]
    if (folder / "broken").exists():
        fail(1, "no library")
    if option == "--list-devices":
        time.sleep(0.3)
        tell("DeviceList", sorted(each.name for each in (folder / "devices").iterdir()))
        with (folder / "looks").open("a") as file:
            file.write(".")
        return
    ecid = sys.argv[sys.argv.index("--ecid") + 1]
    try:
        device = json.loads((folder / "devices" / ecid).read_text())
    except FileNotFoundError:
        fail(4, f"Failed to find device with ecid {ecid} after 3 seconds")
    if option == "--device-info":
        value = {"ECID": ecid, "ProductID": 0x1281, "BoardID": 12, "ChipID": 0x8110,
                 "ProductType": 0, "FusingInfo": 3, "LocationID": device["location"],
                 "SerialNumber": device["serial"]}
        tell("DeviceInfo", {name: each for name, each in value.items() if each is not None})
    elif option in ("--restore", "--restore-plist"):
        restore(folder, ecid, device)


if __name__ == "__main__":
    main()
