"""The command json, on made documents: any cutting gives the same lines."""

from __future__ import annotations

import codecs
import json
import plistlib
import subprocess
import sys
import threading
from datetime import datetime
from pathlib import Path
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as some

from qnrescue.bench.json_lines import UNREADABLE, value_of, values

STATUS = {"Status": "Restoring", "Operation": 13, "Progress": 48,
          "QN_OperationName": "Restoring image"}


def document(value: Any, kind: str = "RestoreStatus") -> bytes:
    """Returns a document as the tool writes it."""
    return plistlib.dumps({"Type": kind, "Value": value}) + b"\n"


def run(*words: str, given: bytes = b"") -> subprocess.CompletedProcess[bytes]:
    """Runs the installed command."""
    return subprocess.run([Path(sys.executable).with_name("qnrescue-bench"), "json", *words],
                          input=given, capture_output=True, timeout=60)


def lines(output: bytes) -> list[Any]:
    """Returns the values of the lines."""
    return [json.loads(line) for line in output.decode("ascii").splitlines()]


@given(some.lists(some.integers(0, 600)))
def test_any_cutting_gives_the_same(cuts: list[int]) -> None:
    stream = document(STATUS) + document(["001E2D4C0A91C026"], "DeviceList")
    places = [0, *sorted(cuts), len(stream)]
    chunks = [stream[start:end] for start, end in zip(places, places[1:])]
    assert list(values(chunks)) == [{"Type": "RestoreStatus", "Value": STATUS},
                                    {"Type": "DeviceList", "Value": ["001E2D4C0A91C026"]}]


@given(some.integers(1, 9))
def test_what_powershell_makes_of_documents(size: int) -> None:
    """It ends lines as Windows does, and may begin with a byte order mark."""
    stream = (document(STATUS) + document(["\ufeff"], "DeviceList")).replace(b"\n", b"\r\n")
    stream = codecs.BOM_UTF8 + stream
    chunks = [stream[start:start + size] for start in range(0, len(stream), size)]
    assert [value["Value"] for value in values(chunks)] == [STATUS, ["\ufeff"]]


def test_what_json_does_not_have() -> None:
    value = {"data": b"\x00\xff", "date": datetime(2026, 11, 22, 8, 30), "real": float("inf"),
             "big": 1 << 63, "nested": [{"data": b"a"}]}
    (read,) = [json.loads(json.dumps(value_of(document(value))))]
    assert read["Value"] == {"data": "AP8=", "date": "2026-11-22T08:30:00Z", "real": "inf",
                             "big": 1 << 63, "nested": [{"data": "YQ=="}]}


@pytest.mark.parametrize("text", [
    b"<?xml version='1.0'?><plist></plist>",
    b"<?xml version='1.0'?><plist><dict><key>Type</key></dict></plist>",
    b"no document</plist>",
    plistlib.dumps(["no type"]),
    b"<?xml version='1.0'?>" + b"<array>" * 1000 + b"</array>" * 1000 + b"</plist>",
])
def test_unreadable_documents(text: bytes) -> None:
    read = list(values([text, document(True, "CommandSuccess")]))
    assert [each["Type"] for each in read] == [UNREADABLE, "CommandSuccess"]
    assert read[0]["Value"]["Reason"]


def test_documents_that_end_within_one() -> None:
    read = list(values([document(STATUS), document(STATUS)[:-20]]))
    assert [each["Type"] for each in read] == ["RestoreStatus", UNREADABLE]
    assert read[1]["Value"]["Text"].startswith("<?xml")


def test_reserved_space_is_no_document() -> None:
    read = list(values([document(STATUS) + bytes(10), bytes(2 << 20)]))
    assert [each["Type"] for each in read] == ["RestoreStatus"]


def test_from_standard_input() -> None:
    ended = run(given=document(STATUS) + document("größer \u2028 \U0001f34f", "Other"))
    assert (ended.returncode, ended.stderr) == (0, b"")
    assert lines(ended.stdout) == [{"Type": "RestoreStatus", "Value": STATUS},
                                   {"Type": "Other", "Value": "größer \u2028 \U0001f34f"}]


def test_from_a_file(tmp_path: Path) -> None:
    path = tmp_path / "documents.plist"
    path.write_bytes(document(STATUS) + bytes(100))
    ended = run(str(path))
    assert (ended.returncode, ended.stderr) == (0, b"")
    assert lines(ended.stdout) == [{"Type": "RestoreStatus", "Value": STATUS}]


def test_no_such_file(tmp_path: Path) -> None:
    ended = run(str(tmp_path / "absent"))
    assert (ended.returncode, ended.stdout) == (3, b"")
    assert b"cannot be read: No such file" in ended.stderr


def test_status_after_an_unreadable_document() -> None:
    ended = run(given=b"<?xml rubbish</plist>" + document(STATUS))
    assert ended.returncode == 1
    assert [each["Type"] for each in lines(ended.stdout)] == [UNREADABLE, "RestoreStatus"]


def test_lines_come_at_once() -> None:
    command = [Path(sys.executable).with_name("qnrescue-bench"), "json"]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
        assert process.stdin and process.stdout
        limit = threading.Timer(30, process.kill)
        limit.start()
        process.stdin.write(document(STATUS))
        process.stdin.flush()
        line = process.stdout.readline()  # before the input ends
        limit.cancel()
        assert line and json.loads(line)["Value"] == STATUS
        process.stdin.close()
        assert process.wait(60) == 0


def test_output_that_is_closed() -> None:
    command = f"'{Path(sys.executable).with_name('qnrescue-bench')}' json 2>&1 >/dev/full"
    ended = subprocess.run(command, shell=True, input=document(STATUS), capture_output=True,
                           timeout=60)
    assert ended.returncode == 5
    assert b"cannot be written" in ended.stdout
    assert b"Traceback" not in ended.stdout
