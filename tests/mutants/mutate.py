"""Breaks the program on purpose, one patch after the other, and prints which test notices each.
The status is 0 if every mutant is killed, or says why none can kill it."""

import argparse
import contextlib
import pathlib
import re
import sys
import time
from dataclasses import dataclass

from builds import Builds, wine_server
from mutant import PatchFault, read_mutant
from working_copy import WorkingCopy

KILLED, SURVIVED, FAULT = "killed", "survived", "error"
HEADER = "| mutant | what is broken | killed by |\n|---|---|---|\n"


@dataclass
class Verdict:
    kind: str
    text: str  # for people: what killed it, or what is wrong
    as_expected: bool = False


def find_mutants(folder, pattern=""):
    """The mutants whose names have the pattern, and the faults of those that cannot be read."""
    mutants, faults = [], {}
    for path in sorted(folder.rglob("*.patch")):
        name = path.relative_to(folder).with_suffix("").as_posix()
        if re.search(pattern, name):
            try:
                mutants.append(read_mutant(name, path))
            except PatchFault as fault:
                faults[name] = fault
    return mutants, faults


def in_order_of_work(mutants):
    """Those of one build and file together: what the last one touched is built with the next."""
    return sorted(mutants, key=lambda each: ([check.build for check in each.checks], each.files,
                                             each.name))


def try_unmutated(mutants, builds, report):
    """The faults of mutants whose tests do not pass on the sources as they are."""
    checks = {check: None for each in in_order_of_work(mutants) for check in each.checks}
    for number, check in enumerate(checks, 1):
        try:
            builds.try_unmutated(check)
            report(f"[{number}/{len(checks)}] without a mutant: {check}: passed")
        except PatchFault as fault:
            checks[check] = fault
            report(f"[{number}/{len(checks)}] without a mutant: {check}: {fault}")
    return {each.name: PatchFault(f"{check}: {checks[check]}") for each in mutants
            for check in each.checks if checks[check]}


def run_checks(mutant, builds):
    """What the tests that should notice say, one after the other until one fails."""
    for check in mutant.checks:
        builds.build(check)
        outcome = builds.run(check)
        if not outcome.passed:
            return outcome
    return None


def judge(mutant, outcome):
    if outcome is None:
        if mutant.survives:
            return Verdict(SURVIVED, f"none: {mutant.survives}", as_expected=True)
        return Verdict(SURVIVED, "**survived**")
    if mutant.survives:
        return Verdict(FAULT, f"**error**: said to survive, but killed by {outcome.by}")
    if outcome.timed_out and not mutant.hangs:
        return Verdict(FAULT, f"**error**: {outcome.by}, and no header says that it hangs")
    return Verdict(KILLED, f"{'timeout of ' if outcome.timed_out else ''}{outcome.by}",
                   as_expected=True)


def try_mutant(mutant, copy, builds):
    try:
        copy.apply(mutant)
        return judge(mutant, run_checks(mutant, builds))
    except PatchFault as fault:
        return Verdict(FAULT, f"**error**: {fault}")
    finally:
        copy.restore(mutant)


def run(root, pattern, smallest_limit, report):
    """The verdicts by the names of the mutants, and what each breaks."""
    mutants, faults = find_mutants(root / "tests" / "mutants", pattern)
    copy = WorkingCopy(root)
    copy.refresh()
    builds = Builds(copy, smallest_limit)
    with contextlib.ExitStack() as stack:
        if any(check.build == "windows" for each in mutants for check in each.checks):
            stack.enter_context(wine_server(root))
        faults |= try_unmutated(mutants, builds, report)
        verdicts = {name: Verdict(FAULT, f"**error**: {fault}") for name, fault in faults.items()}
        left = in_order_of_work(each for each in mutants if each.name not in faults)
        for number, mutant in enumerate(left, 1):
            started = time.monotonic()
            verdicts[mutant.name] = verdict = try_mutant(mutant, copy, builds)
            report(f"[{number}/{len(left)}] {mutant.name}: {verdict.kind}, {verdict.text}"
                   f" ({time.monotonic() - started:.0f} s)")
    return verdicts, {each.name: each.breaks for each in mutants}


def table(verdicts, broken):
    """In Markdown; of a fault no more than the first line."""
    rows = []
    for name, verdict in sorted(verdicts.items()):
        text = verdict.text.splitlines()[0].replace("|", "\\|")
        rows.append(f"| `{name}` | {broken.get(name, '')} | {text} |\n")
    return HEADER + "".join(rows)


def update_page(page, new_table):
    before, _, rest = page.read_text(encoding="utf-8").partition(HEADER)
    _, blank_line, after = rest.partition("\n\n")
    page.write_text(before + new_table + blank_line[1:] + after, encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(prog="mutate", description=__doc__)
    parser.add_argument("pattern", nargs="?", default="",
                        help="regular expression that chooses mutants by their names")
    parser.add_argument("--update", action="store_true",
                        help="write the table to docs/notes/mutants.md too")
    parser.add_argument("--root", type=pathlib.Path, default=pathlib.Path(__file__).parents[2],
                        help="the folder of the sources")
    parser.add_argument("--limit", type=float, default=60,
                        help="seconds that tests may take beyond five times what they usually do")
    options = parser.parse_args()
    if options.update and options.pattern:
        parser.error("the page has the table of all mutants")
    root = options.root.resolve()
    verdicts, broken = run(root, options.pattern, options.limit,
                           lambda line: print(line, file=sys.stderr, flush=True))
    print(table(verdicts, broken), end="")
    if options.update:
        update_page(root / "docs" / "notes" / "mutants.md", table(verdicts, broken))
    wrong = [name for name, verdict in verdicts.items() if not verdict.as_expected]
    print(f"{len(verdicts)} mutants, {len(wrong)} not killed", file=sys.stderr)
    return 1 if wrong or not verdicts else 0


if __name__ == "__main__":
    sys.exit(main())
