"""Checks that nobody else may read a file with a secret."""

from __future__ import annotations

import os
import re
import stat
import sys
from pathlib import Path

# The groups of Windows that have more members than administrators and services, as SDDL has them:
# everyone, users, authenticated, interactive, network and anonymous ones, and guests.
_MANY = {"WD", "BU", "AU", "IU", "NU", "AN", "BG", "S-1-1-0", "S-1-5-32-545", "S-1-5-11", "S-1-5-4",
         "S-1-5-2", "S-1-5-7", "S-1-5-32-546"}


def check_private(path: Path) -> None:
    """Raises PermissionError if others than the owner may use the file, on Windows if many may.
    Raises OSError if that cannot be found out."""
    if is_open_to_others(path):
        raise PermissionError(0, "others may use this file, which has or guards a secret; see"
                                 " docs/fleet.md", str(path))


def sddl_is_open(sddl: str) -> bool:
    """Returns whether an access list, as Windows writes it, grants anything to many."""
    if "D:" not in sddl:
        return True  # without a list everything is granted
    for ace in re.findall(r"\(([^)]*)\)", sddl):
        parts = str(ace).split(";")
        if parts[0] in ("A", "XA", "OA") and len(parts) > 5 and parts[5] in _MANY:
            return True
    return "D:NO_ACCESS_CONTROL" in sddl


if sys.platform == "win32":
    import ctypes
    from ctypes import wintypes

    _FILE_OBJECT, _ACCESS_LIST, _REVISION = 1, 4, 1

    def is_open_to_others(path: Path) -> bool:
        """Returns whether others may use the file. Raises OSError."""
        return sddl_is_open(_sddl(path))

    def _sddl(path: Path) -> str:
        security, kernel = ctypes.WinDLL("advapi32"), ctypes.WinDLL("kernel32")
        descriptor, text = ctypes.c_void_p(), wintypes.LPWSTR()
        kernel.LocalFree.argtypes = [ctypes.c_void_p]
        status = security.GetNamedSecurityInfoW(
            wintypes.LPCWSTR(str(path)), _FILE_OBJECT, _ACCESS_LIST, None, None, None, None,
            ctypes.byref(descriptor))
        if status:
            raise ctypes.WinError(status)
        try:
            if not security.ConvertSecurityDescriptorToStringSecurityDescriptorW(
                    descriptor, _REVISION, _ACCESS_LIST, ctypes.byref(text), None):
                raise ctypes.WinError()
            return text.value or ""
        finally:
            kernel.LocalFree(ctypes.cast(text, ctypes.c_void_p))
            kernel.LocalFree(descriptor)
else:
    def is_open_to_others(path: Path) -> bool:
        """Returns whether others may use the file. Raises OSError."""
        status = path.stat()
        return bool(stat.S_IMODE(status.st_mode) & 0o077) or status.st_uid not in (0, os.getuid())
