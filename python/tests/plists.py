"""Documents as the tool prints them."""

from __future__ import annotations

import plistlib
from typing import Any

ECID = "001E2D4C0A91C026"


def document(kind: str, value: Any) -> bytes:
    """Returns a document with the empty line that follows it."""
    return plistlib.dumps({"Type": kind, "Value": value}) + b"\n"


def report(operation: int, progress: int, status: str = "Restoring", **more: Any) -> bytes:
    """Returns a report of a restore."""
    return document("RestoreStatus", {"Status": status, "Operation": operation,
                                      "Progress": progress, **more})


def step(operation: int, progress: int, name: str) -> bytes:
    """Returns the report of a step with a name."""
    return report(operation, progress, QN_OperationName=name)


COMPLETE = report(0, 100, "Successful")
FAILURE = report(21, 40, "Failed", QN_OperationName="Restoring image",
                 Error={"Domain": "AMRestoreErrorDomain", "Code": 14, "Description": "It broke",
                        "FailureReason": "the image is damaged"})


def internal_error(code: int, reason: str, domain: str = "qnrescue") -> bytes:
    """Returns an error of the tool."""
    return document("InternalError", {"Domain": domain, "Code": code, "Description": "described",
                                      "FailureReason": reason})


TIMEOUT = internal_error(7, "Aborting, restore did not complete in 3 seconds")
NO_DEVICE = internal_error(4, f"Failed to find device with ecid {ECID} after 3 seconds")
