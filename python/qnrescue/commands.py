"""The argument lists of the tool's commands."""

from __future__ import annotations

import re

_ECID = re.compile(r"[0-9A-Fa-f]{16}")


def clean_ecid(text: str) -> str:
    """Returns the ECID as the tool prints it. Raises ValueError if the text is not one."""
    if not _ECID.fullmatch(text.strip()):
        raise ValueError(f"not an ECID, which has 16 hexadecimal digits: {text!r}")
    return text.strip().upper()


def list_devices(*, detect_timeout: int | None = None) -> list[str]:
    """Returns the arguments that list the devices. The timeout is in seconds; None: the tool's
    default."""
    return ["--list-devices", *_option("--detect-timeout", detect_timeout)]


def device_info(ecid: str, *, detect_timeout: int | None = None) -> list[str]:
    """Returns the arguments that report the properties of a device."""
    return ["--device-info", *_device(ecid, detect_timeout)]


def exit_recovery(ecid: str, *, detect_timeout: int | None = None) -> list[str]:
    """Returns the arguments that boot a device out of recovery mode."""
    return ["--exit-recovery", *_device(ecid, detect_timeout)]


def no_exit_recovery(ecid: str, *, detect_timeout: int | None = None) -> list[str]:
    """Returns the arguments that keep a device in recovery mode when it reboots."""
    return ["--no-exit-recovery", *_device(ecid, detect_timeout)]


def restore(ecid: str, bundle: str, *, erase: bool = False, enter_restore_mode: bool = False,
            restore_timeout: int | None = None, detect_timeout: int | None = None,
            log_file: str | None = None) -> list[str]:
    """Returns the arguments that restore a device from a bundle. `enter_restore_mode` stops as soon
    as the device is in restore mode."""
    return ["--restore", bundle, *_device(ecid, detect_timeout),
            *(["--erase"] if erase else []),
            *(["--enter-restore-mode"] if enter_restore_mode else []),
            *_option("--restore-timeout", restore_timeout),
            *_option("--amr-logfile", log_file)]


def restore_plist(ecid: str, plist: str, *, enter_restore_mode: bool = False,
                  detect_timeout: int | None = None, log_file: str | None = None) -> list[str]:
    """Returns the arguments that restore a device with the options in a property-list file. The
    tool takes neither `--erase` nor a restore timeout with it."""
    return ["--restore-plist", plist, *_device(ecid, detect_timeout),
            *(["--enter-restore-mode"] if enter_restore_mode else []),
            *_option("--amr-logfile", log_file)]


def _device(ecid: str, detect_timeout: int | None) -> list[str]:
    return ["--ecid", clean_ecid(ecid), *_option("--detect-timeout", detect_timeout)]


def _option(name: str, value: str | int | None) -> list[str]:
    return [] if value is None else [name, str(value)]
