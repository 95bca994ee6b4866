"""Writes the inputs that fuzzing begins with.

    make_seeds.py FOLDER

Each target has a folder in this one.
"""

import datetime
import pathlib
import plistlib
import random
import sys

VALUES = {
    "text": "Größe <&> 漢字 😀",
    "marks": "\ufeff\ufefftext",
    "integers": [0, -1, 255, 2**31, 2**63 - 1, -(2**63), 2**64 - 1],
    "reals": [0.5, -1e100, 0.1],
    "booleans": [True, False],
    "date": datetime.datetime(2026, 2, 28, 12, 30, 15),
    "data": bytes(range(256)),
    "nested": {"array": [[], {}, [{"deep": [1, "two", b"3"]}]]},
}
XML = plistlib.dumps({**VALUES, "uid": {"CF$UID": 7}})
BINARY = plistlib.dumps({**VALUES, "uid": plistlib.UID(7)}, fmt=plistlib.FMT_BINARY)

OLD_STYLE = [
    b'{ RestoreBundlePath = "a b.ipsw"; list = (x, "y z", \'q\'); /* c */ data = <0fbd 77>; }',
    b'a = b; "c d" = "\\U00e9\\101\\344\\n"; // comment\n e; %',
    b"( ( ( { a = ( ); } ) ) )",
    '{ "größe" = "漢字"; }'.encode("utf-16"),
]

ARGUMENTS = [
    "--list-devices",
    "--device-info --ecid 000C1A2B3C4D5E6F --debug",
    "--restore=a.ipsw --erase --restore-timeout 7200 --detect-timeout=3 --output-pipe -1",
    "--restore-plist x --enter-restore-mode --amr-logfile y --no-cleanup --help --debug-dump",
    "--exit-recovery --no-exit-recovery --ecid= --frobnicate -x -- positional @response",
]

IDENTIFIERS = ["000C1A2B3C4D5E6F", "ffffffffffffffff", "00008030001A2B3C4D5E6F70",
               "00008030-001A2B3C4D5E6F70", "0123456789abcdef0123456789abcdef01234567"]


def seeds():
    """Per target, the inputs."""
    graphs = random.Random(3)
    return {
        "arguments": [line.replace(" ", "\n").encode() for line in ARGUMENTS],
        "identifiers": [text.encode() for text in IDENTIFIERS],
        "object_graphs": [graphs.randbytes(size) for size in (4, 16, 64, 256, 1024)],
        "property_lists": [
            XML, XML.decode().replace("UTF-8", "UTF-16").encode("utf-16"), BINARY,
            b"<plist>" + b"<array>" * 512 + b"</array>" * 512 + b"</plist>", *OLD_STYLE,
        ],
    }


def main():
    for target, inputs in seeds().items():
        folder = pathlib.Path(sys.argv[1]) / target
        folder.mkdir(parents=True, exist_ok=True)
        for number, content in enumerate(inputs):
            (folder / f"seed-{number}").write_bytes(content)


if __name__ == "__main__":
    main()
