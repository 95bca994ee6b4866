"""One patch that breaks the program: what its file says about it.

The lines above the diff are headers:

    Breaks: what is wrong then, in one line
    Tests: BUILD PROGRAM [NAME:NAME...]    which tests should notice; may be repeated
    Hangs: why a test that does not end in time has noticed it
    Survives: why no test can notice it
"""

import re
from dataclasses import dataclass, field

HEADERS = ("Breaks", "Tests", "Hangs", "Survives")


class PatchFault(Exception):
    """A patch that says nothing: it cannot be read, applied, built or tested."""


@dataclass(frozen=True)
class Check:
    """Tests that should notice: some of a unit-test program or of a module of Python tests."""

    build: str
    program: str
    names: tuple = ()

    def __str__(self):
        return " ".join([self.build, self.program, ":".join(self.names)]).strip()


@dataclass
class Mutant:
    name: str
    path: object
    breaks: str
    checks: list
    hangs: str = None
    survives: str = None
    files: list = field(default_factory=list)  # that the patch changes


def _headers_of(lines):
    found = {name: [] for name in HEADERS}
    for line in lines:
        name, colon, text = line.partition(": ")
        if name not in found or not colon or not text.strip():
            raise PatchFault(f"not a header: {line!r}")
        found[name].append(text.strip())
    return found


def _only(found, name):
    if len(found[name]) > 1:
        raise PatchFault(f"more than one {name!r}")
    return found[name][0] if found[name] else None


def _check_of(text):
    words = text.split()
    if len(words) not in (2, 3):
        raise PatchFault(f"not BUILD PROGRAM [NAMES]: {text!r}")
    names = tuple(words[2].split(":")) if len(words) == 3 else ()
    return Check(words[0], words[1], names)


def read_mutant(name, path):
    text = path.read_text(encoding="utf-8")
    head, start, _ = text.partition("--- a/")
    files = re.findall(r"^\+\+\+ b/(.+)$", text, re.MULTILINE)
    if not start or not files:
        raise PatchFault("no diff")
    found = _headers_of(head.splitlines())
    if not found["Breaks"] or not found["Tests"]:
        raise PatchFault("'Breaks' or 'Tests' is missing")
    return Mutant(name, path, _only(found, "Breaks"), [_check_of(each) for each in found["Tests"]],
                  _only(found, "Hangs"), _only(found, "Survives"), files)
