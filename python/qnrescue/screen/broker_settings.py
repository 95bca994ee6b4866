"""How the screen gets to the broker of its fleet.

    broker = "mqtts://broker.example:8883"
    user = "screen"
    password = "..."
"""

from __future__ import annotations

import tomllib
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from qnrescue.fleet.private_file import check_private
from qnrescue.fleet.settings import Broker, SettingsFault, parse_broker

FILE_NAME = "screen.toml"
_NAMES = ("broker", "user", "password", "ca", "certificate", "key")
_PATHS = ("ca", "certificate", "key")


@dataclass(frozen=True)
class BrokerAccess:
    """Where the broker is, and who the screen is there."""

    broker: Broker
    user: str = ""
    password: str = ""
    ca: Path | None = None  # of the broker's certificate; None: those of the system
    certificate: Path | None = None  # of the screen
    key: Path | None = None  # of the certificate


def read_access(path: Path, broker: str = "") -> BrokerAccess:
    """Returns the access by the file, which need not exist if a broker is given. Paths in it count
    from its folder. Raises SettingsFault."""
    try:
        root = _root(path) if path.exists() or not broker else {}
        access = _access(root, broker or root.get("broker", ""), path.absolute().parent)
        if access.key is not None:
            check_private(access.key)
    except OSError as fault:
        raise SettingsFault(f"{fault.filename or path}: {fault.strerror or fault}") from fault
    except ValueError as fault:  # also: not UTF-8, or not TOML
        raise SettingsFault(f"{path}: {fault}") from fault
    return access


def _root(path: Path) -> dict[str, Any]:
    check_private(path)
    root = tomllib.loads(path.read_text("utf-8"))
    for name, value in root.items():
        if name not in _NAMES or not isinstance(value, str):
            raise ValueError(f"{name} is not known, or not a text")
    return root


def _access(root: dict[str, Any], broker: str, folder: Path) -> BrokerAccess:
    if bool(root.get("certificate")) != bool(root.get("key")):
        raise ValueError("a certificate and its key belong together")
    paths = {name: folder / root[name] for name in _PATHS if name in root}
    return BrokerAccess(parse_broker(broker), root.get("user", ""), root.get("password", ""),
                        **paths)
