"""Reads the Markdown pages of the project, and plays the console sessions in them.

A block marked ```console is a session at a Windows prompt. A line that starts with "> " is a
command, what follows is what it prints:

    qnrescue ARGUMENT...    its standard output, then its standard error
    set NAME=VALUE          nothing; goes for the commands that follow, an empty value removes it
    echo %ERRORLEVEL%       the exit status of the command before

A line "..." is for the documents that are left out there. The sessions run in a folder with the
simulator's scenarios where the package has them, and a firmware bundle update.ipsw.
"""

import pathlib
import plistlib
import re
import shutil
import zipfile
from concurrent.futures import ThreadPoolExecutor

from harness import BIN, DOCUMENT_END, TIME_LIMIT, Process

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
LEFT_OUT = "...\n"


def blocks(page, language):
    """Returns the texts of the page's blocks of this language."""
    return re.findall(rf"^```{language}\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)


def sections(page):
    """Returns the texts of the page's sections by their headings, without sections within them."""
    parts = re.split(r"^#+ (.*)\n", page, flags=re.MULTILINE)
    return dict(zip(parts[1::2], parts[2::2]))


def tables(text):
    """Returns the tables of a text, each as a list of rows without the heading, each row as its
    cells."""
    lines = [re.split(r"(?<!\\)\|", line)[1:-1] if line.startswith("|") else None
             for line in text.splitlines()]
    result = []
    for line, before in zip(lines, [None, *lines]):
        if line and not before:
            result.append([])
        if line:
            result[-1].append([cell.strip().replace("\\|", "|") for cell in line])
    return [table[2:] for table in result]


def code(cell):
    """Returns what is between the backticks of a cell."""
    return re.fullmatch(r"`(.*)`", cell)[1]


class Session:
    """Carries out the commands of a session, in this empty folder."""

    def __init__(self, folder):
        self.folder = folder
        self.environment = {}
        self.status = 0
        self.stdout = b""
        shutil.copytree(ROOT / "simulator" / "scenarios", folder / "simulator" / "scenarios")
        with zipfile.ZipFile(folder / "update.ipsw", "w") as bundle:
            bundle.writestr("BuildManifest.plist", plistlib.dumps({"ProductVersion": "1.0"}))

    def run(self, command):
        """Runs a command; returns what it prints."""
        name, *arguments = command.split()
        if name == "set":
            variable, _, value = arguments[0].partition("=")
            self.environment[variable] = value
            return ""
        if command == "echo %ERRORLEVEL%":
            return f"{self.status}\n"
        if name != "qnrescue":
            raise ValueError(f"no command of a session: {command}")
        environment = {name: value for name, value in self.environment.items() if value}
        with Process([BIN / "qnrescue.exe", *arguments], self.folder, environment) as process:
            run = process.wait(TIME_LIMIT)
        self.status, self.stdout = run.status, run.stdout
        return (run.stdout + run.stderr).decode("utf-8")


def abridged(output, shown):
    """Returns the output, with as many documents left out as in what is shown of an earlier run."""
    before, left_out, after = shown.partition(LEFT_OUT)
    if not left_out:
        return output
    end = DOCUMENT_END.decode()
    documents = re.findall(rf".*?{end}\n", output, re.DOTALL)
    first, last = before.count(end), len(documents) - after.count(end)
    if first >= last:
        raise ValueError(f"nothing to leave out of {len(documents)} documents")
    return "".join([*documents[:first], LEFT_OUT, *documents[last:]])


def played(text, folder):
    """Returns the session with what its commands print now."""
    session = Session(folder)
    steps = re.split(r"^(?=> )", text, flags=re.MULTILINE)
    result = []
    for step in steps[1:]:
        command, _, shown = step.partition("\n")
        result.append(f"{command}\n{abridged(session.run(command[2:]), shown)}")
    return "".join(result)


def refreshed(page, new_folder):
    """Returns the page with the real output in its sessions; each session has a new folder."""
    session = re.compile(r"(?<=^```console\n).*?(?=^```$)", re.MULTILINE | re.DOTALL)
    with ThreadPoolExecutor() as pool:
        outputs = pool.map(lambda text: played(text, new_folder()), session.findall(page))
        return session.sub(lambda _: next(outputs), page)
