"""docs/architecture.md: folders include only what it allows, and what the pages name exists."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "architecture.md"
# Notes may name what is gone.
PAGES = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").glob("*.md")),
         *sorted((ROOT / "examples").rglob("*.md"))]


def table(heading):
    """The rows of the page's table with this heading, each as its cells."""
    lines = PAGE.read_text(encoding="utf-8").splitlines()
    start = lines.index(heading) + 2
    rows = []
    for line in lines[start:]:
        if not line.startswith("|"):
            return rows
        rows.append([cell.strip() for cell in line.split("|")[1:-1]])
    return rows


def code(cell):
    """The texts between backticks."""
    return re.findall(r"`([^`]+)`", cell)


def project_files():
    """The paths of all files of the project, without what is built or hidden."""
    for path in sorted(ROOT.rglob("*")):
        parts = path.relative_to(ROOT).parts
        if path.is_file() and parts[0] != "build" and not any(part.startswith((".", "__"))
                                                              for part in parts):
            yield path.relative_to(ROOT).as_posix()


def is_in(path, place):
    """Whether the path is this file, or in this folder."""
    return path == place or path.startswith(f"{place}/")


def included_files(source):
    """The files of the project that a source includes; generated ones and others are left out."""
    text = (ROOT / source).read_text(encoding="utf-8")
    for name in re.findall(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', text, re.MULTILINE):
        for path in (ROOT / name, (ROOT / source).parent / name):
            if path.is_file():
                yield path.resolve().relative_to(ROOT).as_posix()
                break


FILES = list(project_files())
SOURCES = [file for file in FILES if file.endswith((".cpp", ".hpp", ".h", ".in", ".rc"))]
ALLOWED = {code(folder)[0]: code(allowed)
           for folder, allowed in table("| folder | may include |")}


def folder_of(source):
    """The folder whose row holds for this source; None for none."""
    return next((folder for folder in ALLOWED if is_in(source, folder)), None)


class Includes(unittest.TestCase):
    def test_every_source_has_a_row(self):
        self.assertIn("QNRescue/main.cpp", SOURCES)
        without = {source for source in SOURCES if not source.endswith(".in")
                   and not folder_of(source)}
        self.assertEqual(set(), without)

    def test_only_what_is_allowed_and_all_that_is(self):
        used = set()
        for source in filter(folder_of, SOURCES):
            folder = folder_of(source)
            for included in included_files(source):
                if not is_in(included, folder):
                    place = next((each for each in ALLOWED[folder] if is_in(included, each)), None)
                    self.assertTrue(place, f"{source} includes {included}, which"
                                           f" docs/architecture.md does not allow {folder}")
                    used.add((folder, place))
        self.assertEqual({(folder, place) for folder in ALLOWED for place in ALLOWED[folder]},
                         used)


class Names(unittest.TestCase):
    def test_what_is_to_be_found_is_there(self):
        rows = table("| question | file | name |")
        self.assertGreaterEqual(len(rows), 15)
        for question, file, name in rows:
            with self.subTest(question):
                text = (ROOT / code(file)[0]).read_text(encoding="utf-8")
                found = re.search(rf"(?<!\w){re.escape(code(name)[0])}(?!\w)", text)
                self.assertTrue(found, f"{file} has no {name}")

    def test_files_in_the_pages_exist(self):
        folders = {file.split("/")[0] for file in FILES if "/" in file}
        paths = re.compile(r"(?<![\w/\\%.-])((?:" + "|".join(sorted(map(re.escape, folders))) +
                           r")/[\w./-]*[\w/])")
        for page in PAGES:
            found = set(paths.findall(page.read_text(encoding="utf-8")))
            missing = {path for path in found
                       if not any(is_in(file, path.rstrip("/")) for file in FILES)}
            self.assertEqual(set(), missing, page.relative_to(ROOT))


if __name__ == "__main__":
    unittest.main()
