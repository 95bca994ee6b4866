"""A double of the tool for tests of what drives it. The bundle is a file with what it does, one
action a line:

    report OPERATION PROGRESS   prints a report with the name of the step, "step OPERATION"
    complete | failure | timeout | no-device | rubbish
    wait SECONDS | wait-for FILE
    say TEXT                    writes a line to standard error
    exit STATUS

Each start is a line with the ECID in the file "starts" beside the bundle."""

from __future__ import annotations

import os
import sys
import time
from pathlib import Path

import plists

NO_DEVICE = "0" * 16  # the ECID of a device that is not there

DOCUMENTS = {"complete": plists.COMPLETE, "failure": plists.FAILURE, "timeout": plists.TIMEOUT,
             "no-device": plists.NO_DEVICE, "rubbish": b"<?xml rubbish</plist>\n"}


def option(words: list[str], name: str) -> str:
    """Returns the value of an option; empty without it."""
    return words[words.index(name) + 1] if name in words else ""


def act(action: str, values: list[str]) -> None:
    """Does one action."""
    if action == "report":
        write(plists.step(int(values[0]), int(values[1]), f"step {values[0]}"))
    elif action == "wait":
        time.sleep(float(values[0]))
    elif action == "wait-for":
        while not Path(values[0]).exists():
            time.sleep(0.02)
    elif action == "say":
        print(*values, file=sys.stderr, flush=True)
    elif action == "exit":
        sys.exit(int(values[0]))
    else:
        write(DOCUMENTS[action])


def write(text: bytes) -> None:
    """Writes a document; like the tool, goes on without if that fails."""
    try:
        os.write(1, text)
    except OSError:
        pass


def main() -> None:
    """Plays the bundle."""
    words = sys.argv[1:]
    ecid = option(words, "--ecid")
    if "--list-devices" in words:
        write(plists.document("DeviceList", [plists.ECID, "000A35D83C60802E"]))
    elif "--device-info" in words and ecid == NO_DEVICE:
        write(plists.NO_DEVICE)
    elif "--device-info" in words:
        numbers = dict.fromkeys(("ProductID", "BoardID", "ChipID", "ProductType", "FusingInfo",
                                 "LocationID"), 7)
        write(plists.document("DeviceInfo", {"ECID": ecid, **numbers}))
    elif "--exit-recovery" in words or "--no-exit-recovery" in words:
        write(plists.document("CommandSuccess", True))
    else:
        bundle = Path(option(words, "--restore") or option(words, "--restore-plist"))
        with (bundle.parent / "starts").open("a") as starts:
            starts.write(f"{ecid}\n")
        with Path(option(words, "--amr-logfile") or os.devnull).open("a") as log:
            log.write(" ".join(words) + "\n")
        for line in bundle.read_text().splitlines():
            action, *values = line.split()
            act(action, values)


if __name__ == "__main__":
    main()
