"""Reads the settings of a station in its fleet.

    station = "bench-07"
    broker = "mqtts://broker.example:8883"
    bundles = "bundles"
    user = "bench-07"
    password = "..."
"""

from __future__ import annotations

import tomllib
import urllib.parse
from collections.abc import Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from qnrescue.fleet.private_file import check_private
from qnrescue.fleet.topics import check_station

FILE_NAME = "fleet.toml"

_LOOPBACK = {"127.0.0.1", "::1", "localhost"}
_DEFAULT_PORTS = {"mqtts": 8883, "mqtt": 1883}


class SettingsFault(Exception):
    """The settings cannot be used; the text says why."""


@dataclass(frozen=True)
class Broker:
    """Where the broker is."""

    host: str
    port: int
    uses_tls: bool


@dataclass(frozen=True)
class Settings:
    """What the owner of the station has decided."""

    station: str
    broker: Broker
    bundles: Path  # the folder that orders name bundles of
    user: str = ""
    password: str = ""
    ca: Path | None = None  # of the broker's certificate; None: those of the system
    certificate: Path | None = None  # of the station
    key: Path | None = None  # of the certificate
    allow_erase: bool = False
    job_days: int = 7  # how long the broker keeps a job that has ended
    longest_validity: float = 86400.0  # seconds that an order may be valid


_TYPES: Mapping[str, type] = {
    "station": str, "broker": str, "bundles": str, "user": str, "password": str, "ca": str,
    "certificate": str, "key": str, "allow_erase": bool, "job_days": int,
    "longest_validity_hours": int}
_PATHS = ("bundles", "ca", "certificate", "key")


def read_settings(path: Path, broker: str | None = None) -> Settings:
    """Returns the settings of the file, with this broker if one is given. Paths in it count from
    its folder. Raises SettingsFault."""
    try:
        check_private(path)
        root = tomllib.loads(path.read_text("utf-8"))
        if broker is not None:
            root["broker"] = broker
        settings = _settings_of(root, path.absolute().parent)
        if settings.key is not None:
            check_private(settings.key)
    except OSError as fault:
        raise SettingsFault(f"{fault.filename or path}: {fault.strerror or fault}") from fault
    except (ValueError, SettingsFault) as fault:  # also: not UTF-8, or not TOML
        raise SettingsFault(f"{path}: {fault}") from fault
    return settings


def _settings_of(root: Mapping[str, Any], folder: Path) -> Settings:
    for name, value in root.items():
        if name not in _TYPES:
            raise SettingsFault(f"{name} is not known")
        if type(value) is not _TYPES[name]:
            raise SettingsFault(f"{name} is not of the type {_TYPES[name].__name__}")
    for name in ("station", "broker", "bundles"):
        if not root.get(name):
            raise SettingsFault(f"{name} is missing")
    if bool(root.get("certificate")) != bool(root.get("key")):
        raise SettingsFault("a certificate and its key belong together")
    values = dict(root)
    hours = values.pop("longest_validity_hours", 24)
    days = values.get("job_days", 7)
    if not 1 <= hours <= 24 * days or days > 3650:
        raise SettingsFault("job_days or longest_validity_hours is out of range: an order is valid"
                            " for an hour or more, and for no longer than jobs are kept")
    values.update({name: folder / values[name] for name in _PATHS if name in values})
    return Settings(**{**values, "station": check_station(root["station"]),
                       "broker": parse_broker(root["broker"]), "longest_validity": hours * 3600.0})


def parse_broker(address: str) -> Broker:
    """Returns where the broker is. Raises ValueError if the address is not one, or if the way there
    is not encrypted."""
    parts = urllib.parse.urlsplit(address)
    rest = parts.path.strip("/") + parts.query + parts.fragment
    if parts.scheme not in _DEFAULT_PORTS or not parts.hostname or rest or "@" in parts.netloc:
        raise ValueError(f"not the address of a broker: {address!r}; it is like"
                         " mqtts://broker.example:8883")
    if parts.scheme == "mqtt" and parts.hostname not in _LOOPBACK:
        raise ValueError(f"{address} is not encrypted; mqtt:// is only for this machine")
    return Broker(parts.hostname, parts.port or _DEFAULT_PORTS[parts.scheme],
                  parts.scheme == "mqtts")
