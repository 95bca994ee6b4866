"""The commands list and info: which devices are attached, and what they are."""

from __future__ import annotations

import argparse
from concurrent.futures import ThreadPoolExecutor
from typing import Any

from qnrescue.bench.arguments import ecid
from qnrescue.bench.context import Context
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.slots import Slots
from qnrescue.bench.values import device_value
from qnrescue.events import DeviceInfo
from qnrescue.tool import Tool, ToolFailure

# How many devices are asked at the same time.
_AT_ONCE = 8


def add_commands(actions: argparse._SubParsersAction[Any], common: argparse.ArgumentParser,
                 looking: argparse.ArgumentParser) -> None:
    """Adds the commands to the command line."""
    listing = actions.add_parser("list", parents=[common, looking],
                                 help="list the attached devices")
    listing.set_defaults(act=list_devices)
    info = actions.add_parser("info", parents=[common, looking], help="show what a device is")
    info.add_argument("ecid", metavar="ECID", type=ecid)
    info.set_defaults(act=show_info)


def list_devices(context: Context) -> int:
    """Shows the attached devices."""
    tool = context.tool(context.options.detect_timeout)
    with context.starting():
        found = tool.list_devices()
        infos = ask_all(tool, found)
    slots = context.slots
    headings = ["slot", "ECID", "serial number", "chip", "board", "product", "name"]
    context.output.table(headings, [_cells(each, infos[each], slots) for each in found],
                         [_value(each, infos[each], slots) for each in found])
    return ExitStatus.DONE


def ask_all(tool: Tool, ecids: list[str]) -> dict[str, DeviceInfo | ToolFailure]:
    """Returns what the devices are, or why that is not known. Raises OSError."""
    def ask(each: str) -> DeviceInfo | ToolFailure:
        try:
            return tool.device_info(each)
        except ToolFailure as failure:
            return failure

    with ThreadPoolExecutor(_AT_ONCE) as pool:
        return dict(zip(ecids, pool.map(ask, ecids)))


def slot_of(info: DeviceInfo | ToolFailure | None, slots: Slots) -> str:
    """Returns the name of the slot of the device; empty if it is not known."""
    if not isinstance(info, DeviceInfo) or not info.location_id:
        return ""
    return slots.name_of(info.location_id)


def _cells(device: str, info: DeviceInfo | ToolFailure, slots: Slots) -> list[str]:
    if isinstance(info, ToolFailure):
        return ["", device, "", "", "", "", str(info)]
    return [slot_of(info, slots), device, info.serial_number or "", f"{info.chip_id:04X}",
            f"{info.board_id:02X}", f"{info.product_id:04X}", info.product_string or ""]


def _value(device: str, info: DeviceInfo | ToolFailure, slots: Slots) -> dict[str, Any]:
    if isinstance(info, ToolFailure):
        return {"ecid": device, "error": str(info)}
    return device_value(info, slot_of(info, slots))


def show_info(context: Context) -> int:
    """Shows the properties of a device."""
    tool = context.tool(context.options.detect_timeout)
    with context.starting():
        info = tool.device_info(context.options.ecid)
    value = device_value(info, slot_of(info, context.slots))
    context.output.table(["property", "value"],
                         [[name.replace("_", " "), _shown(name, each)]
                          for name, each in value.items()], [value])
    return ExitStatus.DONE


def _shown(name: str, value: object) -> str:
    if isinstance(value, int):
        return f"{value:08X}" if name == "location_id" else f"{value:X}"
    return str(value or "")
