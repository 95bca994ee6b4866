"""Restore-options files made to harm: each is refused or read, in time and in bounded memory."""

import contextlib
import os
import plistlib
import struct
import time
import unittest

from harness import COMPLETE, ECID, RUNNER, ToolTest, device

MIB = 2**20
HEADER = b"bplist00"


def binary(objects, **trailer):
    """A binary property list of these encoded objects, the first being the root, with references
    of 2 bytes and offsets of 4. The fields of the trailer can be made others."""
    body, table = HEADER, b""
    for encoded in objects:
        table += struct.pack(">I", len(body))
        body += encoded
    fields = {"offset_size": 4, "reference_size": 2, "count": len(objects), "root": 0,
              "table": len(body), **trailer}
    return body + table + struct.pack(">6xBBQQQ", *fields.values())


ARRAY, DICT = 0xA0, 0xD0
KEY = b"\x51k"


def container(marker, references):
    """An array, or a dictionary of its keys and then its values, of less than 15 entries."""
    count = len(references) // (2 if marker == DICT else 1)
    return struct.pack(f">B{len(references)}H", marker | count, *references)


def laughs(levels, width=10):
    """A dictionary whose value is a tree of shared arrays, of width ** levels leaves."""
    arrays = [container(ARRAY, [3 + level] * width) for level in range(levels)]
    return binary([container(DICT, [1, 2]), KEY, *arrays, b"\x51x"])


def nested_xml(levels):
    return (b"<plist><dict><key>k</key>" + b"<array>" * levels + b"</array>" * levels
            + b"</dict></plist>")


def nested_binary(levels):
    return binary([container(DICT, [1, 2]), KEY,
                   *(container(ARRAY, [3 + level]) for level in range(levels - 1)),
                   container(ARRAY, [])])


XML_LAUGHS = (b'<?xml version="1.0"?><!DOCTYPE plist [<!ENTITY a "aaaaaaaaaa">'
              + b"".join(b'<!ENTITY %c "%s">' % (letter, b"&%c;" % (letter - 1) * 10)
                         for letter in range(ord("b"), ord("k")))
              + b"]><plist><dict><key>k</key><string>&j;</string></dict></plist>")
XML_EXTERNAL = (b'<!DOCTYPE plist [<!ENTITY x SYSTEM "file:///etc/passwd">]><plist><dict>'
                b"<key>k</key><string>&x;</string></dict></plist>")
SOUND = plistlib.dumps({"k": "größe"})

REFUSED = {
    "entities": XML_LAUGHS,
    "external entity": XML_EXTERNAL,
    "undefined entity": b"<plist><dict><key>k</key><string>&x;</string></dict></plist>",
    "too deep XML": nested_xml(512),
    "far too deep XML": nested_xml(1_000_000),
    "unclosed XML": b"<plist><dict><key>k</key>" + b"<array>" * 1_000_000,
    "unclosed plist tags": b"<plist>" * 1_000_000,
    "too deep text": b"{k=" + b"(" * 512 + b")" * 512 + b";}",
    "far too deep text": b"{k=" + b"(" * 1_000_000,
    "far too deep binary": nested_binary(20_000),
    "root in itself": binary([container(DICT, [1, 0]), KEY]),
    "cycle of arrays": binary([container(DICT, [1, 2]), KEY, container(ARRAY, [3]),
                               container(ARRAY, [2])]),
    "key in itself": binary([container(DICT, [0, 0])]),
    "reference beyond the table": binary([container(DICT, [1, 9]), KEY]),
    "root beyond the table": binary([container(DICT, [])], root=1),
    "no objects": binary([container(DICT, [])], count=0),
    "more objects than bytes": binary([container(DICT, [])], count=2**61),
    "table beyond the file": binary([container(DICT, [])], table=2**63),
    "table before the objects": binary([container(DICT, [])], table=0),
    "no offset size": binary([container(DICT, [])], offset_size=0),
    "no reference size": binary([container(DICT, [])], reference_size=0),
    "count beyond the file": binary([container(DICT, [1, 2]), KEY, b"\x4f\x13" + b"\x7f" * 8]),
    "negative count": binary([container(DICT, [1, 2]), KEY, b"\x4f\x13" + b"\xff" * 8]),
    "many long strings": binary([container(DICT, [1, 2]), KEY, container(ARRAY, [3] * 14),
                                 b"\x5f\x12\x7f\xff\xff\xff"]),
    "trailer alone": HEADER + bytes(32),
    "header alone": HEADER,
    "UTF-16 said to be UTF-8": SOUND.decode().encode("utf-16-le"),
    "Latin-1 said to be UTF-8": SOUND.decode().encode("latin-1"),
    "unknown encoding": SOUND.replace(b"UTF-8", b"X-NONE"),
    "overlong UTF-8": SOUND.replace("ö".encode(), b"\xc0\xbc"),
    "surrogates in UTF-8": SOUND.replace("ö".encode(), b"\xed\xa0\x80"),
    "zeros": bytes(MIB),
    "one line of opening tags": b"<" * MIB,
    "an endless comment": b"<!--" + b"-" * MIB,
    "quotes": b'"' * (MIB + 1),
}

READ = {
    "deepest XML": nested_xml(511),
    "deepest text": b"{k=" + b"(" * 511 + b")" * 511 + b";}",
    "deepest binary": nested_binary(511),
    "UTF-16": SOUND.decode().replace("UTF-8", "UTF-16").encode("utf-16"),
    "UTF-32": SOUND.decode().encode("utf-32"),
    "UTF-8 with a mark": b"\xef\xbb\xbf" + SOUND,
    "one key 10,000 times": b"<plist><dict>" + b"<key>k</key><true/>" * 10_000 + b"</dict></plist>",
    "100,000 keys": plistlib.dumps({f"{number:x}": number for number in range(100_000)}),
    "many comments": b"<!---->" * 100_000 + SOUND[SOUND.index(b"<plist") :],
}


class OptionsTest(ToolTest):
    def write(self, content):
        path = self.new_folder() / "options.plist"
        path.write_bytes(content)
        return path

    def start_with(self, path):
        return self.start("--restore-plist", str(path), "--ecid", ECID, scenario={
            "Devices": [device(RestoreReports=[COMPLETE])], "TimeScale": 0})


class HostileOptions(OptionsTest):
    def test_refused(self):
        for name, content in REFUSED.items():
            with self.subTest(name):
                path = self.write(content)
                run = self.finish(self.start_with(path), status=8)
                (document,) = run.documents
                self.assert_error(document, 8, f"Cannot open file '{path}' - Invalid format")

    def test_read(self):
        for name, content in READ.items():
            with self.subTest(name):
                run = self.finish(self.start_with(self.write(content)), status=0)
                self.assertEqual(["RestoreStatus"], [each.type for each in run.documents])


SIZE = 16 * MIB  # of a large value
ESCAPED = b"x" * (SIZE - 1) + b"&lt;"
WIDE = b"x" * (SIZE - 2) + "ö".encode()


def xml(element, content):
    return b"<plist><dict><key>k</key><%b>%b</%b></dict></plist>" % (element, content, element)


# Each with what the value in the file needs, and how much the simulator has twice while it reads.
COSTS = {
    "binary, data": (
        lambda: plistlib.dumps({"k": bytes(SIZE)}, fmt=plistlib.FMT_BINARY), SIZE, 0),
    "binary, shared arrays for 10^40 texts": (lambda: laughs(40), 0, 0),
    "XML, data": (lambda: plistlib.dumps({"k": bytes(SIZE)}), SIZE, 0),
    "XML, a string": (lambda: xml(b"string", b"x" * SIZE), SIZE, 0),
    "XML, a string with an entity": (lambda: xml(b"string", ESCAPED), SIZE, SIZE),
    "XML, a string beyond ASCII": (lambda: xml(b"string", WIDE), 2 * SIZE, 0),
    "XML, nested too deeply": (lambda: nested_xml(SIZE // 15), 0, 0),
    "old style, data": (lambda: b"{k=<" + b"00" * (SIZE // 2) + b">;}", SIZE // 2, 0),
    "old style, a string": (lambda: b'{k="' + b"x" * SIZE + b'";}', SIZE, 0),
    "no property list": (lambda: b"x " * (SIZE // 2), 0, 0),
    "no property list, beyond ASCII": (lambda: b"x " * (SIZE // 2) + WIDE[-2:], 0, 2 * SIZE),
    "no property list, UTF-16": (lambda: ("x " * (SIZE // 4)).encode("utf-16"), 0, 2 * SIZE),
}


@unittest.skipUnless(RUNNER, "reads the figures of this system")
class Memory(OptionsTest):
    """What a file costs: its size, and what the value in it needs. The device never comes, so that
    only the reading is measured."""

    SLACK = 8 * MIB

    def peak(self, path):
        """The most memory, in bytes, that a run with this file has had."""
        process = self.start("--restore-plist", str(path), "--ecid", ECID, "--detect-timeout", "0",
                             scenario={})
        peak = 0
        while process.running():
            status = f"/proc/{process.id}/status"
            with contextlib.suppress(OSError), open(status, encoding="ascii") as lines:
                peak = max([peak, *(int(line.split()[1]) * 1024 for line in lines
                                    if line.startswith("VmHWM:"))])
            time.sleep(0.001)
        self.finish(process)
        return peak

    def test_costs(self):
        least = self.peak(self.write(SOUND))
        print("memory of restore-options files, MiB: the file, its value, what was used")
        for name, (make, value, twice) in COSTS.items():
            with self.subTest(name):
                content = make()
                cost = self.peak(self.write(content)) - least
                print(f"{name}: {len(content) / MIB:.0f}, {value / MIB:.0f}, {cost / MIB:.0f}")
                self.assertLess(cost, len(content) + value + twice + self.SLACK)

    def test_file_above_the_limit(self):
        path = self.write(b"")
        os.truncate(path, 2**30 + 1)
        self.assertLess(self.peak(path) - self.peak(self.write(SOUND)), self.SLACK)


if __name__ == "__main__":
    unittest.main()
