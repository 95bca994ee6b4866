"""The command doctor, with made tools, doctors and folders."""

from __future__ import annotations

import contextlib
import json
import plistlib
import re
import sqlite3
import subprocess
import sys
import time
from pathlib import Path
from typing import Any

import pytest

from qnrescue.jobs import JobOrder
from qnrescue.journal import Journal
from qnrescue.processes import ProcessIdentity

PAGE = Path(__file__).resolve().parents[2] / "docs" / "bench-doctor.md"
BENCH = ["bench-folder", "bench-space", "bench-journal", "bench-broken-journal",
         "bench-supervisor", "bench-clock", "bench-slots"]
ECID = "001E2D4C0A91C026"
LIST = plistlib.dumps({"Type": "DeviceList", "Value": [ECID]})


class Machine:
    """A folder with a bench and a tool that a script plays."""

    def __init__(self, folder: Path) -> None:
        self.bench = folder / "bench"
        self.bench.mkdir()
        self.tool = folder / "qnrescue.py"
        self.doctor = folder / "qnrescue-doctor.py"
        self.tool.write_text(f"import sys\nsys.stdout.buffer.write({LIST!r})\n")
        self.output = ""

    def examine(self, status: int, *words: str, bench: Path | None = None) -> list[dict[str, str]]:
        """Returns the findings; the command has to have this exit status."""
        run = subprocess.run(
            [Path(sys.executable).with_name("qnrescue-bench"), "doctor", *words,
             "--folder", bench or self.bench, "--tool", sys.executable, "--tool", self.tool],
            capture_output=True, text=True, timeout=60)
        self.output = run.stdout
        assert (run.returncode, run.stderr) == (status, "")
        found: list[dict[str, str]] = []
        if "--json" in words:
            found = [json.loads(line) for line in run.stdout.splitlines()]
        for each in found:
            assert set(each) == {"id", "word", "text", "what_to_do", "see"}
            assert (each["word"] == "ok") == (each["what_to_do"] == "")
        assert status == ("problem" in {each["word"] for each in found})
        return found

    def examined(self, name: str, status: int = 0) -> tuple[str, str]:
        """Returns the word and the text of the finding with this id."""
        (found,) = [each for each in self.examine(status, "--json") if each["id"] == name]
        return found["word"], found["text"]

    def change(self, statement: str, *values: Any) -> None:
        """Changes the journal behind the back of the package."""
        with contextlib.closing(sqlite3.connect(self.bench / "journal-1.sqlite")) as journal:
            journal.execute(statement, values)
            journal.commit()


@pytest.fixture
def machine(tmp_path: Path) -> Machine:
    return Machine(tmp_path)


def test_all_is_well(machine: Machine) -> None:
    found = machine.examine(0, "--json")
    assert [each["id"] for each in found] == ["tool-run", *BENCH]
    assert {each["word"] for each in found} == {"ok"}
    assert found[0]["text"] == "The tool lists 1 devices"


def test_text_for_people(machine: Machine) -> None:
    machine.examine(0)
    assert machine.output.startswith("ok       The tool lists 1 devices\n"
                                     "         See docs/bench-doctor.md#tool-run\n"
                                     "ok       The bench is in ")


def test_findings_of_the_doctor_come_first(machine: Machine) -> None:
    report = {"version": "0.1.0", "restore_could_start": False,
              "findings": [{"id": "usb-device", "word": "problem", "text": "no driver",
                            "what_to_do": "install it", "see": "docs/troubleshooting.md#x"}]}
    machine.doctor.write_text(f"import json, sys\nassert sys.argv[1:] == ['--json']\n"
                              f"print(json.dumps({report!r}))\nsys.exit(1)\n")
    found = machine.examine(1, "--json")
    assert [each["id"] for each in found] == ["usb-device", *BENCH]
    assert found[0] == report["findings"][0]  # type: ignore[index]


@pytest.mark.parametrize("program", ["print('rubbish')", "print('{}')",
                                     "print('{\"findings\": [{\"id\": 1}]}')"])
def test_doctor_that_does_not_work(machine: Machine, program: str) -> None:
    machine.doctor.write_text(program)
    word, text = machine.examined("doctor-run")
    assert word == "warning"
    assert str(machine.doctor) in text


def test_tool_that_fails(machine: Machine) -> None:
    machine.tool.write_text("import sys\nsys.exit('no library')\n")
    assert machine.examined("tool-run", 1) == (
        "problem", "The tool does not list the devices: ended with status 1: no library")


def test_folder_that_cannot_be_made(machine: Machine) -> None:
    found = machine.examine(1, "--json", bench=machine.tool / "bench")
    words = {each["id"]: each["word"] for each in found}
    assert words["bench-folder"] == words["bench-journal"] == "problem"
    assert "bench-clock" not in words


def test_journal_that_was_found_broken(machine: Machine) -> None:
    (machine.bench / "journal-1.sqlite").write_bytes(b"rubbish" * 1000)
    word, text = machine.examined("bench-broken-journal")
    assert word == "warning"
    assert "journal-1.sqlite" in text
    assert machine.examined("bench-journal")[0] == "ok"


def test_journal_of_a_newer_version(machine: Machine) -> None:
    machine.examine(0, "--json")
    machine.change("PRAGMA user_version = 99")
    word, text = machine.examined("bench-journal", 1)
    assert word == "problem"
    assert "version 99" in text


def test_jobs_without_a_supervisor(machine: Machine) -> None:
    with Journal(machine.bench) as journal:
        journal.claim(journal.submit(JobOrder(ECID, "x.ipsw"), "a test").id)
        journal.record_supervisor(ProcessIdentity(1, "long ago"))
    assert machine.examined("bench-supervisor") == ("warning", "1 jobs run without a supervisor")
    assert machine.examined("bench-journal")[1].endswith("has 1 jobs")


def test_clock_that_was_set_back(machine: Machine) -> None:
    with Journal(machine.bench) as journal:
        journal.submit(JobOrder(ECID, "x.ipsw"), "a test")
    assert machine.examined("bench-clock")[0] == "ok"
    machine.change("UPDATE jobs SET ordered_at = ?", time.time() + 1000)
    word, text = machine.examined("bench-clock")
    assert word == "warning"
    assert "set back" in text


def test_slots_that_cannot_be_read(machine: Machine) -> None:
    (machine.bench / "slots.toml").write_text("[[slot]\n")
    assert machine.examined("bench-slots", 1)[0] == "problem"


def test_page_has_each_finding() -> None:
    headings = re.findall(r"^## (.+)$", PAGE.read_text("utf-8"), re.MULTILINE)
    assert headings == ["doctor-run", "tool-run", *BENCH]
