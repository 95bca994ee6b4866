"""Measures the tool beside its yardsticks and prints the table; scripts/benchmark runs it."""

import argparse
import pathlib

import native
import report
import whole_runs


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--native", metavar="PROGRAM", help="the built native_benchmarks")
    parser.add_argument("--windows", metavar="FOLDER", help="the built Windows programs")
    parser.add_argument("--runner", help="what runs Windows programs")
    parser.add_argument("--smoke", action="store_true", help="see only that all of it runs")
    parser.add_argument("--output", metavar="FOLDER", type=pathlib.Path, required=True)
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    arguments.output.mkdir(parents=True, exist_ok=True)
    rows, listing = [], []
    if arguments.native:
        samples = native.run(arguments.native, arguments.smoke)
        rows += native.rows(samples)
        listing = native.listing(samples)
        report.write_plot(arguments.output / "listing.svg", listing)
    if arguments.windows:
        programs = whole_runs.Programs(arguments.windows, arguments.runner)
        extent = whole_runs.SMOKE if arguments.smoke else whole_runs.FULL
        rows += whole_runs.rows(programs, extent)
    report.write_json(arguments.output / "results.json", rows, listing)
    print(report.table(rows))


if __name__ == "__main__":
    main()
