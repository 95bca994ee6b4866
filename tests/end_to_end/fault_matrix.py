"""Makes each call of the platform that can fail do so, one run of the tool for each, and compares
what the tool prints with fault_table.py. QNRESCUE_BIN is as in harness.py; the set-up whose calls
can be made to fail is the folder `faults` beside it."""

import argparse
import collections
import os
import pathlib
import plistlib
import re
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass

import fault_table
from fault_table import COMMANDS, EMPTY_LINE, FAILURES, INFALLIBLE
from harness import BIN, WATCH_SECONDS, OutputFault, Process, take_document

PROGRAM = BIN.parent / "faults" / "qnrescue.exe"
STATUSES = range(9)


@dataclass
class Cell:
    """One run: without a function none fails, without a call all calls of the function do."""

    command: fault_table.Command
    function: str = None
    call: int = None
    result: int = None
    change: object = None

    def __str__(self):
        if not self.function:
            return f"{self.command.name}: no failure"
        call = f"call {self.call}" if self.call else "every call"
        return f"{self.command.name}: {self.function}, {call}, result {self.result}"

    @property
    def fault(self):
        parts = {"Function": self.function, "Call": self.call, "Result": self.result}
        return {key: value for key, value in parts.items() if value is not None}

    @property
    def expected(self):
        """None where only the rules for every run hold."""
        if self.function and not self.call:
            return None
        expected = self.command.expected()
        if self.change:
            self.change(expected)
        return expected

    @property
    def waits(self):
        if self.expected:
            return self.expected.waits
        return self.function in self.command.waits_without


def cells_of(command):
    """The run without a failure, every failing call, and every function that always fails."""
    yield Cell(command)
    numbers = collections.Counter()
    for function, changes in command.calls:
        numbers[function] += 1
        number = numbers[function]
        if not command.only or number in command.only:
            for result, change in changes.items():
                yield Cell(command, function, number, result, change)
    for function in numbers:
        for result in FAILURES[function]:
            yield Cell(command, function, None, result)


def all_cells():
    return [cell for command in COMMANDS for cell in cells_of(command)]


def sample(cells, count):
    """The first failing call of each function, and others evenly spread, about so many in all."""
    first = {}
    for cell in cells:
        first.setdefault((cell.function, cell.call is None), cell)
    spread = cells[:: max(1, len(cells) // max(1, count - len(first)))]
    chosen = {id(cell) for cell in (*first.values(), *spread)}
    return [cell for cell in cells if id(cell) in chosen]


# --- One run


def start(cell, folder):
    scenario = dict(cell.command.scenario)
    if cell.function:
        scenario["Faults"] = [*scenario.get("Faults", []), cell.fault]
    path = folder / "scenario.plist"
    path.write_bytes(plistlib.dumps(scenario))
    for name, content in cell.command.files.items():
        (folder / name).write_bytes(content)
    arguments = cell.command.arguments + (["--debug"] if cell.command.debug else [])
    return Process([PROGRAM, *arguments], folder, {
        "MOBILEDEVICE_SIMULATOR_SCENARIO": str(path),
        "MOBILEDEVICE_SIMULATOR_TRACE": str(folder / "trace")})


def check(condition, *shown):
    if not condition:
        raise OutputFault("; ".join(map(str, shown)))


def printed_entries(output):
    """Every byte belongs to a document and its line feed, or is the line feed of an empty entry."""
    entries = []
    while output:
        if output.startswith(b"\n"):
            entries.append(EMPTY_LINE)
            output = output[1:]
        else:
            document, output = take_document(output)
            check(document, f"the output breaks off: {output!r}")
            entries.append([document.type, document.value])
    return entries


def check_documents(printed, expected):
    wanted = [each for each in expected.documents if each]
    check(printed == wanted, f"printed {printed}", f"not {wanted}")


def check_lines(lines, expected):
    for wanted in expected.lines:
        check(any(re.fullmatch(wanted, line) for line in lines), f"no line {wanted!r}", lines[-30:])


def calls_made(process):
    lines = (process.content("trace.calls") or b"").decode().splitlines()
    return {name: int(count) for name, count in (line.split(" ") for line in lines)}


def check_calls(cell, calls):
    """The table knows every call of the run; a call that is to fail was made."""
    if cell.function:
        check(calls.get(cell.function, 0) >= (cell.call or 1), "the call was not made", calls)
        return
    unknown = set(calls) - set(FAILURES) - INFALLIBLE
    check(not unknown, f"functions that the table does not know: {unknown}")
    listed = collections.Counter(function for function, _ in cell.command.calls)
    made = {function: count for function, count in calls.items() if function in FAILURES}
    differences = {function: f"{made.get(function, 0)}, not {listed[function]}"
                   for function in FAILURES if made.get(function, 0) != listed[function]}
    check(not differences, f"calls: {differences}")


def check_end(cell, process):
    run = process.wait()
    calls = calls_made(process)
    shown = f"status {run.status}, {run.stdout!r}, {run.stderr[-2000:]!r}, calls: {calls}"
    check(run.trace and run.trace[-1] == "live-objects 0", f"trace: {run.trace[-1:]}", shown)
    check_calls(cell, calls)
    printed = printed_entries(run.stdout)
    check(run.status in STATUSES, shown)
    if not cell.command.debug:
        check(run.stderr == b"", shown)
    if expected := cell.expected:
        check(run.status == expected.status, f"not {expected.status}", shown)
        check_documents(printed, expected)
        if cell.command.debug:
            check_lines(run.stderr_lines, expected)


def check_waiting(cell, process):
    time.sleep(WATCH_SECONDS)
    check(process.running(), f"ended: {process.content('stdout')!r}")
    check(process.content("stdout") == b"", f"printed {process.content('stdout')!r}")


def fault_of(cell):
    """Runs the cell; None where all is as expected."""
    with tempfile.TemporaryDirectory(prefix="fault_matrix.") as name:
        try:
            with start(cell, pathlib.Path(name)) as process:
                (check_waiting if cell.waits else check_end)(cell, process)
        except Exception as fault:  # whatever is wrong with what the run wrote
            return f"{cell}: {type(fault).__name__}: {fault}"
    return None


def run_cells(cells, jobs):
    """The faults by cell."""
    with ThreadPoolExecutor(jobs) as pool:
        return {id(cell): fault for cell, fault in zip(cells, pool.map(fault_of, cells)) if fault}


# --- The report


def print_matrix(cells, faults, out=sys.stdout):
    """Functions down, commands across: the runs of each, with those that failed after a dash."""
    for number, command in enumerate(COMMANDS, 1):
        print(f"{number:3}  {command.name}", file=out)
    runs, wrong = collections.Counter(), collections.Counter()
    for cell in cells:
        place = cell.function or "(no failure)", cell.command.name
        runs[place] += 1
        wrong[place] += id(cell) in faults
    functions = sorted({function for function, _ in runs})
    width = max(map(len, functions))
    print(f"\n{'':{width}}", *(f"{n:4}" for n in range(1, len(COMMANDS) + 1)), file=out)
    for function in functions:
        columns = []
        for command in COMMANDS:
            place = function, command.name
            text = f"{runs[place]}" if runs[place] else "."
            columns.append(f"{text + (f'-{wrong[place]}' if wrong[place] else ''):>4}")
        print(f"{function:{width}}", *columns, file=out)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--sample", type=int, help="about so many runs instead of all")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="runs at a time")
    parser.add_argument("--only", default="", help="regular expression that chooses runs")
    options = parser.parse_args()
    cells = [cell for cell in all_cells() if re.search(options.only, str(cell))]
    if options.sample:
        cells = sample(cells, options.sample)
    started = time.monotonic()
    faults = run_cells(cells, options.jobs)
    print_matrix(cells, faults)
    for fault in faults.values():
        print(fault)
    functions = {cell.function for cell in cells if cell.function}
    print(f"{len(cells)} runs of {len({cell.command.name for cell in cells})} commands with"
          f" failures of {len(functions)} functions: {len(faults)} wrong"
          f" ({time.monotonic() - started:.0f} s)")
    return 1 if faults or not cells else 0


if __name__ == "__main__":
    sys.exit(main())
