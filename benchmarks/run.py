"""Measures the tool beside its baselines and prints the table; scripts/benchmark runs it."""

import argparse
import pathlib
import subprocess
import sys

import machine
import native
import report
import whole_runs
from progress import Progress
from rows import Nonsense


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--native", metavar="PROGRAM", help="the built native_benchmarks")
    parser.add_argument("--windows", metavar="FOLDER", help="the built Windows programs")
    parser.add_argument("--runner", help="what runs Windows programs")
    parser.add_argument("--smoke", action="store_true", help="see only that all of it runs")
    parser.add_argument("--output", metavar="FOLDER", type=pathlib.Path, required=True)
    parser.add_argument(
        "--update-page",
        metavar="PAGE",
        type=pathlib.Path,
        help="put the table into this page too",
    )
    return parser.parse_args()


def measure(arguments):
    """The rows, and the times of listings."""
    expected = (native.ROWS if arguments.native else 0) + (
        whole_runs.ROWS if arguments.windows else 0
    )
    progress = Progress(expected)
    rows, listing = [], []
    if arguments.native:
        samples = native.run(arguments.native, arguments.smoke, progress)
        rows += native.rows(samples)
        listing = native.listing(samples)
    if arguments.windows:
        programs = whole_runs.Programs(arguments.windows, arguments.runner)
        extent = whole_runs.SMOKE if arguments.smoke else whole_runs.FULL
        rows += whole_runs.rows(programs, extent, progress)
    if len(rows) != expected:
        raise Nonsense(f"there are {len(rows)} rows instead of {expected}")
    return rows, listing


def main():
    arguments = parse_arguments()
    where = machine.description()
    try:
        rows, listing = measure(arguments)
    except (Nonsense, subprocess.CalledProcessError) as error:
        sys.exit(f"benchmark: {error}")
    arguments.output.mkdir(parents=True, exist_ok=True)
    report.write_json(arguments.output / "results.json", where, rows, listing)
    if listing:
        report.write_plot(arguments.output / "listing.svg", listing)
    if arguments.update_page:
        report.update_page(arguments.update_page, where, rows)
    print(where, report.table(rows), sep="\n\n")


if __name__ == "__main__":
    main()
