"""The command doctor: what the tool's own doctor finds, and what is to be found at the bench."""

from __future__ import annotations

import argparse
import json
import shutil
import subprocess
import time
import warnings
from collections.abc import Callable, Iterator, Sequence
from dataclasses import asdict, dataclass
from pathlib import Path
from typing import Any

from qnrescue import processes
from qnrescue.bench.context import CommandFailure, Context
from qnrescue.bench.display import clean
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.slots import SlotsFault
from qnrescue.database import broken_files
from qnrescue.desk import Desk
from qnrescue.jobs import JobState
from qnrescue.places import PrivateFolder, bench_folder

OK, WARNING, PROBLEM = "ok", "warning", "problem"

# What a bench needs for its journal and the files of its jobs, in bytes.
FREE_SPACE = 1 << 30
# How long the tool's doctor may take, in seconds.
_TIME_LIMIT = 120.0

_INDENT = " " * 9


@dataclass(frozen=True)
class Finding:
    """A finding, as the tool's doctor has them too."""

    id: str
    word: str  # OK, WARNING or PROBLEM
    text: str
    what_to_do: str
    see: str


def add_commands(actions: argparse._SubParsersAction[Any], common: argparse.ArgumentParser) -> None:
    """Adds the command to the command line."""
    parser = actions.add_parser(
        "doctor", parents=[common], help="examine the machine and the bench",
        description="Runs qnrescue-doctor if it is beside the tool, and examines the bench. A"
                    " finding is ok, a warning, or a problem, with which restores cannot start.")
    parser.set_defaults(act=show_findings)


def show_findings(context: Context) -> int:
    """Shows all findings as they are made."""
    status = ExitStatus.DONE
    for finding in findings(context):
        if context.output.as_json:
            context.output.value(asdict(finding))
        else:
            context.output.line(_described(finding))
        if finding.word == PROBLEM:
            status = ExitStatus.FAILED
    return status


def _described(finding: Finding) -> str:
    lines = [*finding.text.splitlines(), *finding.what_to_do.splitlines(), f"See {finding.see}"]
    return f"{finding.word:9}" + f"\n{_INDENT}".join(clean(line) for line in lines)


def findings(context: Context) -> Iterator[Finding]:
    """Yields the findings of the tool's doctor, or of the tool if there is no doctor, and then
    those of the bench."""
    doctor = doctor_words(context.tool_words)
    yield from run_doctor(doctor) if doctor else [examine_tool(context)]
    yield from examine_folder(context)
    yield from examine_journal(context)
    yield examine_slots(context)


def _finding(name: str, word: str, text: str, what_to_do: str = "") -> Finding:
    return Finding(name, word, text, what_to_do, f"docs/bench-doctor.md#{name}")


def doctor_words(tool: Sequence[str]) -> list[str] | None:
    """Returns the words that start the doctor beside the tool; None if it is not there."""
    path = Path(tool[-1])
    doctor = path.with_name(f"qnrescue-doctor{path.suffix}")
    return [*tool[:-1], str(doctor), "--json"] if doctor.is_file() else None


def run_doctor(words: Sequence[str]) -> list[Finding]:
    """Runs the doctor and returns its findings, or that it does not work."""
    try:
        run = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True,
                             timeout=_TIME_LIMIT)
        return [Finding(**each) for each in json.loads(run.stdout)["findings"]]
    except (OSError, subprocess.TimeoutExpired, ValueError, KeyError, TypeError) as fault:
        return [_finding("doctor-run", WARNING, f"{words[-2]} does not work: {fault}",
                         "Run it by itself.")]


def examine_tool(context: Context) -> Finding:
    """Lists the devices with the tool."""
    try:
        with context.starting():
            found = context.tool(1).list_devices()
    except Exception as fault:  # whatever it is, it is the finding
        return _finding("tool-run", PROBLEM, f"The tool does not list the devices: {fault}",
                        "Name the program with --tool, and read what it reports.")
    return _finding("tool-run", OK, f"The tool lists {len(found)} devices")


def examine_folder(context: Context) -> Iterator[Finding]:
    """Yields findings about the folder of the bench."""
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        try:
            folder = bench_folder(context.options.folder).path
            (probe := folder / "doctor.probe").touch()
            probe.unlink()
        except OSError as fault:
            yield _finding("bench-folder", PROBLEM, f"The folder of the bench cannot be written:"
                                                    f" {fault}",
                           "Let this user write there, or name another folder with --folder.")
            return
    if any(issubclass(each.category, PrivateFolder) for each in caught):
        yield _finding("bench-folder", WARNING, str(caught[0].message),
                       "Let all who restore devices write into the folder of the machine.")
    else:
        yield _finding("bench-folder", OK, f"The bench is in {folder}")
    free = shutil.disk_usage(folder).free
    text = f"{free / (1 << 30):.1f} GiB are free for the journal and the files of jobs"
    yield (_finding("bench-space", OK, text) if free >= FREE_SPACE else
           _finding("bench-space", WARNING, text, "Remove old files, also folders in jobs/."))


def examine_journal(context: Context) -> Iterator[Finding]:
    """Yields findings about the journal and the jobs in it."""
    try:
        with context.desk() as desk:
            desk.journal.check()
            yield _finding("bench-journal", OK,
                           f"{desk.journal.path} is whole and has {len(desk.journal.jobs())} jobs")
            for examine in _EXAMINATIONS:
                yield examine(desk)
    except CommandFailure as fault:
        yield _finding("bench-journal", PROBLEM, str(fault),
                       "If another program holds it, end that. A damaged one is kept, and the"
                       " bench goes on with a new one.")


def _examine_broken_files(desk: Desk) -> Finding:
    kept = broken_files(desk.folder.path)
    if not kept:
        return _finding("bench-broken-journal", OK, "No journal was ever found broken")
    return _finding("bench-broken-journal", WARNING,
                    "Kept because they were found broken: " + ", ".join(map(str, kept)),
                    "Examine the disk. Remove these files when nobody needs them.")


def _examine_supervisor(desk: Desk) -> Finding:
    running = len(desk.journal.jobs(JobState.RUNNING))
    supervisor = desk.journal.supervisor()
    if supervisor is not None and processes.is_running(supervisor):
        return _finding("bench-supervisor", OK, f"Process {supervisor.pid} supervises the jobs, of"
                                                f" which {running} run")
    if not running:
        return _finding("bench-supervisor", OK, "No supervisor is needed, as no job runs")
    return _finding("bench-supervisor", WARNING, f"{running} jobs run without a supervisor",
                    f"Any command that follows jobs starts one. {desk.folder.supervisor_log} may"
                    " say why it ended.")


def _examine_clock(desk: Desk) -> Finding:
    latest = max((job.ordered_at for job in desk.journal.jobs(limit=100)), default=0.0)
    ahead = latest - time.time()
    if ahead <= 1:
        return _finding("bench-clock", OK, "No job is from the future")
    return _finding("bench-clock", WARNING, f"A job was ordered {ahead:.0f} s in the future: the"
                                            " clock was set back",
                    "Times in the history are wrong by as much; jobs are not affected.")


_EXAMINATIONS: Sequence[Callable[[Desk], Finding]] = (_examine_broken_files, _examine_supervisor,
                                                      _examine_clock)


def examine_slots(context: Context) -> Finding:
    """Reads the names of the slots."""
    try:
        names = context.slots.names
    except SlotsFault as fault:
        return _finding("bench-slots", PROBLEM, str(fault), "Mend the file, or remove it.")
    except CommandFailure as fault:
        return _finding("bench-slots", WARNING, str(fault), "See the finding about the folder.")
    if not names:
        return _finding("bench-slots", OK, "No slots are named; qnrescue-bench slots names them")
    return _finding("bench-slots", OK, f"{len(names)} slots are named")
