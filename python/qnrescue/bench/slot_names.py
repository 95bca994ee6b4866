"""The command slots: shows the names of the slots, learns them and removes them."""

from __future__ import annotations

import argparse
from collections.abc import Iterator
from typing import Any

from qnrescue.bench.context import Context
from qnrescue.bench.devices import ask_all
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.slots import FILE_NAME, Slots, check_name, write_slots
from qnrescue.events import DeviceInfo
from qnrescue.tool import Tool

# How long to look for devices at a time, in seconds, unless an option says something else.
DETECT_SECONDS = 1


def add_commands(actions: argparse._SubParsersAction[Any], common: argparse.ArgumentParser,
                 looking: argparse.ArgumentParser) -> None:
    """Adds the command to the command line."""
    slots = actions.add_parser(
        "slots", parents=[common, looking], help="show or learn the names of the slots",
        description="Shows the slots and what is in them. With --learn, names them: plug a device"
                    " into one slot after the other, as this command says.")
    change = slots.add_mutually_exclusive_group()
    change.add_argument("--learn", nargs="*", metavar="NAME",
                        help="the names, in order; without names: numbers, until Control-C")
    change.add_argument("--remove", metavar="NAME", help="forget a slot")
    slots.set_defaults(act=slots_command, check=_check)


def _check(options: argparse.Namespace) -> str:
    names: list[str] = options.learn or []
    return "a name comes twice" if len(set(names)) < len(names) else ""


def slots_command(context: Context) -> int:
    """Shows the slots, or changes them."""
    path = context.folder.path / FILE_NAME
    if context.options.remove is not None:
        write_slots(path, context.slots.without(context.options.remove))
    elif context.options.learn is not None:
        _learn(context)
    else:
        _show(context)
    return ExitStatus.DONE


def _show(context: Context) -> None:
    slots = context.slots
    tool = context.tool(context.options.detect_timeout or DETECT_SECONDS)
    with context.starting():
        infos = ask_all(tool, tool.list_devices())
    there = {info.location_id: info for info in infos.values()
             if isinstance(info, DeviceInfo) and info.location_id}
    values = [_value(slots, location, there.get(location))
              for location in dict.fromkeys([*slots.names, *sorted(there)])]
    context.output.table(["slot", "location", "ECID", "serial number"],
                         [[str(each or "") for each in value.values()] for value in values],
                         values)


def _value(slots: Slots, location: int, info: DeviceInfo | None) -> dict[str, str | None]:
    return {"slot": slots.names.get(location), "location": f"{location:08X}",
            "device": info.ecid if info else None,
            "serial_number": info.serial_number if info else None}


def _learn(context: Context) -> None:
    names: list[str] = context.options.learn
    for name in names:
        check_name(name)
    slots = context.slots
    tool = context.tool(context.options.detect_timeout or DETECT_SECONDS)
    arrivals = _arrivals(context, tool)
    for name in names or _numbers(context):
        context.note(f"plug a device into the slot {name!r}")
        location = next(arrivals)
        if name in slots.names.values():
            slots = slots.without(name)
        slots = slots.named(location, name)
        write_slots(context.folder.path / FILE_NAME, slots)
        context.slots = slots
        context.output.table(["slot", "location"], [[name, f"{location:08X}"]],
                             [{"slot": name, "location": f"{location:08X}"}])


def _numbers(context: Context) -> Iterator[str]:
    while True:
        yield context.slots.next_number()


def _arrivals(context: Context, tool: Tool) -> Iterator[int]:
    """Yields the location ids of the devices that are plugged in from now on."""
    with context.starting():
        attached = set(tool.list_devices())
        while True:
            found = tool.list_devices()
            for info in ask_all(tool, [each for each in found if each not in attached]).values():
                if isinstance(info, DeviceInfo) and info.location_id:
                    yield info.location_id
            attached = set(found)
