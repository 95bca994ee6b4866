"""Reads orders. Nothing in them is used that is not checked here."""

from __future__ import annotations

import json
import math
import re
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any

# The most that an order has, in bytes.
LONGEST_PAYLOAD = 16384

RESTORE, CANCEL, EXIT_RECOVERY = "restore", "cancel", "exit-recovery"

# No separator, drive or stream, and nothing that begins or ends in a way that a system treats
# specially.
_BUNDLE = re.compile(r"[A-Za-z0-9]([A-Za-z0-9 ._,+()-]{0,126}[A-Za-z0-9_)])?")
_RESERVED = re.compile(r"(CON|PRN|AUX|NUL|COM\d|LPT\d) *(\..*)?", re.IGNORECASE)
_SHA256 = re.compile(r"[0-9A-Fa-f]{64}")
_ECID = re.compile(r"[0-9A-Fa-f]{16}")
_JOB = re.compile(r"[A-Za-z0-9][A-Za-z0-9._-]{0,63}")
_LONGEST_TIMEOUT = 86400  # seconds


class OrderFault(Exception):
    """The order is refused; the text says why."""


@dataclass(frozen=True)
class Order:
    """An order as it came, with values that are valid by themselves."""

    action: str
    not_after: float  # seconds since 1970-01-01, UTC
    device: str = ""
    bundle: str = ""  # a name
    sha256: str = ""
    job: str = ""
    erase: bool = False
    enter_restore_mode: bool = False
    restore_timeout: int | None = None  # seconds


_REQUIRED = {RESTORE: {"action", "not_after", "device", "bundle"},
             CANCEL: {"action", "not_after", "job"},
             EXIT_RECOVERY: {"action", "not_after", "device"}}
_OPTIONAL = {RESTORE: {"sha256", "options"}, CANCEL: set[str](), EXIT_RECOVERY: set[str]()}
_OPTIONS = {"erase", "enter_restore_mode", "restore_timeout"}


def parse_order(payload: bytes) -> Order:
    """Returns the order. Raises OrderFault if the payload is not one."""
    root = _object_of(payload)
    action = root.get("action")
    if not isinstance(action, str) or action not in _REQUIRED:
        raise OrderFault("the action is none of " + ", ".join(sorted(_REQUIRED)))
    _check_keys(root, _REQUIRED[action], _OPTIONAL[action])
    options = root.get("options", {})
    if not isinstance(options, dict):
        raise OrderFault("the options are not an object")
    _check_keys(options, set(), _OPTIONS)
    return Order(
        action, _time(root["not_after"]),
        device=_text(root, "device", _ECID).upper(),
        bundle=_bundle(root),
        sha256=_text(root, "sha256", _SHA256).lower(),
        job=_text(root, "job", _JOB),
        erase=_flag(options, "erase"),
        enter_restore_mode=_flag(options, "enter_restore_mode"),
        restore_timeout=_timeout(options))


def check_time(order: Order, now: float, longest_validity: float) -> None:
    """Raises OrderFault if it is too late for the order, or if it is valid for more than
    `longest_validity` seconds: then a clock is wrong."""
    if now > order.not_after:
        raise OrderFault(f"it is too late: the order was valid until {order.not_after:.0f}, and the"
                         f" station's clock says {now:.0f}")
    if order.not_after - now > longest_validity:
        raise OrderFault(f"the order is valid until {order.not_after:.0f}, and the station's clock"
                         f" says {now:.0f}: more than {longest_validity:g} s are left")


def _object_of(payload: bytes) -> Mapping[str, Any]:
    if len(payload) > LONGEST_PAYLOAD:
        raise OrderFault(f"the order has {len(payload)} bytes; it may have {LONGEST_PAYLOAD}")
    try:
        root = json.loads(payload.decode("utf-8"), object_pairs_hook=_without_repetition)
    except (ValueError, RecursionError) as fault:
        raise OrderFault(f"not JSON: {ascii(str(fault))[1:-1][:200]}") from fault
    if not isinstance(root, dict):
        raise OrderFault("not a JSON object")
    return root


def _without_repetition(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    values = dict(pairs)
    if len(values) != len(pairs):
        raise OrderFault("a key comes twice")
    return values


def _check_keys(values: Mapping[str, Any], required: set[str], optional: set[str]) -> None:
    if missing := required - set(values):
        raise OrderFault("without " + ", ".join(sorted(missing)))
    if unknown := set(values) - required - optional:
        names = ", ".join(ascii(each[:40]) for each in sorted(unknown))
        raise OrderFault(f"unknown: {names[:200]}")


def _time(value: Any) -> float:
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not 0 <= value < 1 << 40 \
            or not math.isfinite(value):
        raise OrderFault("not_after is not a time in seconds since 1970-01-01, UTC")
    return float(value)


def _text(root: Mapping[str, Any], key: str, pattern: re.Pattern[str]) -> str:
    value = root.get(key)
    if key not in root:
        return ""
    if not isinstance(value, str) or not pattern.fullmatch(value):
        raise OrderFault(f"not a valid {key}")
    return value


def is_bundle_name(name: str) -> bool:
    """Returns whether an order can name this bundle."""
    return bool(_BUNDLE.fullmatch(name)) and not _RESERVED.fullmatch(name)


def _bundle(root: Mapping[str, Any]) -> str:
    name = _text(root, "bundle", _BUNDLE)
    if name and not is_bundle_name(name):
        raise OrderFault("not a valid bundle")
    return name


def _flag(options: Mapping[str, Any], key: str) -> bool:
    value = options.get(key, False)
    if not isinstance(value, bool):
        raise OrderFault(f"{key} is not true or false")
    return value


def _timeout(options: Mapping[str, Any]) -> int | None:
    if "restore_timeout" not in options:
        return None
    value = options["restore_timeout"]
    if type(value) is not int or not 1 <= value <= _LONGEST_TIMEOUT:
        raise OrderFault(f"restore_timeout is not a number of seconds up to {_LONGEST_TIMEOUT}")
    return value
