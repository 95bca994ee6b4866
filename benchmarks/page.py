"""page.py RESULTS.json PAGE.md: puts the table of a former run into the page."""

import pathlib
import sys

import report


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    where, rows = report.read_json(pathlib.Path(sys.argv[1]))
    report.update_page(pathlib.Path(sys.argv[2]), where, rows)


if __name__ == "__main__":
    main()
