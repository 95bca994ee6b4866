"""Names the slots of a bench by the location ids of its USB ports.

The names are in a TOML file, in the order in which the bench shows them:

    [[slot]]
    name = "left 1"
    location = 0x14200000
"""

from __future__ import annotations

import pathlib
import tomllib
from dataclasses import dataclass, field
from typing import Any, Mapping

from qnrescue.bench.whole_file import replace_file

FILE_NAME = "slots.toml"

_HEADER = """\
# The slots of this bench, in the order in which it shows them: each is a USB port with a name.
# "qnrescue-bench slots" writes this file anew; it may also be edited by hand.
"""
_LONGEST_NAME = 24


class SlotsFault(Exception):
    """The slots cannot be read or changed; the text says why."""


@dataclass(frozen=True)
class Slots:
    """The names of the slots by location id, in the order of the bench."""

    names: Mapping[int, str] = field(default_factory=dict)

    def name_of(self, location: int) -> str:
        """Returns the name of the slot; without a name, the location id as eight digits."""
        return self.names.get(location, f"{location:08X}")

    def named(self, location: int, name: str) -> Slots:
        """Returns the slots with this name for the location. A name goes with the port: it
        replaces the one that the location has. Raises SlotsFault."""
        check_name(name)
        for other, taken in self.names.items():
            if taken == name and other != location:
                raise SlotsFault(f"the slot {name!r} is at {other:08X} already")
        return Slots({**self.names, location: name})

    def without(self, name: str) -> Slots:
        """Returns the slots without the one of this name. Raises SlotsFault."""
        if name not in self.names.values():
            raise SlotsFault(f"no slot has the name {name!r}")
        return Slots({at: each for at, each in self.names.items() if each != name})

    def next_number(self) -> str:
        """Returns the lowest number that no slot has as its name."""
        taken = set(self.names.values())
        return next(str(number) for number in range(1, len(taken) + 2) if str(number) not in taken)


def check_name(name: str) -> None:
    """Raises SlotsFault unless the name can be shown in a row of the bench."""
    if not name or len(name) > _LONGEST_NAME or name != name.strip() or not name.isprintable():
        raise SlotsFault(f"not a name for a slot: {name!r}; it has 1 to {_LONGEST_NAME} characters"
                         " that can be printed, and no blanks around them")


def read_slots(path: pathlib.Path) -> Slots:
    """Returns the slots of the file; none if the file is missing. Raises SlotsFault."""
    try:
        root = tomllib.loads(path.read_text("utf-8"))
    except FileNotFoundError:
        return Slots()
    except OSError as fault:
        raise SlotsFault(f"{path} cannot be read: {fault.strerror}") from fault
    except ValueError as fault:  # not UTF-8, or not TOML
        raise SlotsFault(f"{path}: {fault}") from fault
    try:
        return _slots_of(root)
    except SlotsFault as fault:
        raise SlotsFault(f"{path}: {fault}") from fault


def _slots_of(root: Mapping[str, Any]) -> Slots:
    entries = root.get("slot", [])
    if set(root) - {"slot"} or not isinstance(entries, list):
        raise SlotsFault("only [[slot]] entries are known")
    slots = Slots()
    for number, entry in enumerate(entries, 1):
        if not isinstance(entry, dict) or set(entry) != {"name", "location"}:
            raise SlotsFault(f"slot {number} has other keys than a name and a location")
        name, location = entry["name"], entry["location"]
        if not isinstance(name, str) or type(location) is not int or not 0 < location < 1 << 32:
            raise SlotsFault(f"slot {number} needs a text as its name, and a location id of 32"
                             " bits")
        if location in slots.names:
            raise SlotsFault(f"two slots are at {location:08X}")
        slots = slots.named(location, name)
    return slots


def format_slots(slots: Slots) -> str:
    """Returns the text of the file."""
    entries = (f'\n[[slot]]\nname = "{_escaped(name)}"\nlocation = 0x{location:08X}\n'
               for location, name in slots.names.items())
    return _HEADER + "".join(entries)


def _escaped(name: str) -> str:
    return name.replace("\\", "\\\\").replace('"', '\\"')


def write_slots(path: pathlib.Path, slots: Slots) -> None:
    """Replaces the file: it is whole at every moment. Raises SlotsFault."""
    try:
        path.parent.mkdir(parents=True, exist_ok=True)
        replace_file(path, format_slots(slots))
    except OSError as fault:
        raise SlotsFault(f"{path} cannot be written: {fault.strerror}") from fault
