"""The topics of a station. docs/fleet.md describes them."""

from __future__ import annotations

import re
from dataclasses import dataclass

from qnrescue.jobs import check_job_id

_ROOT = "qnrescue"
# No dots: some brokers take them for slashes.
_STATION = re.compile(r"[A-Za-z0-9][A-Za-z0-9_-]{0,63}")


def check_station(text: str) -> str:
    """Returns the name of a station. Raises ValueError if it cannot be one."""
    if not _STATION.fullmatch(text):
        raise ValueError(f"not a name of a station: {text!r}; it has up to 64 letters, digits,"
                         " underscores and hyphens")
    return text


def check_order_id(text: str) -> str:
    """Returns the id of an order. Raises ValueError if it cannot be one."""
    if "." in check_job_id(text):
        raise ValueError(f"an id of an order has no dot: {text!r}")
    return text


@dataclass(frozen=True)
class Topics:
    """The names of the topics of a station."""

    name: str

    @property
    def availability(self) -> str:
        return f"{_ROOT}/{self.name}/availability"

    @property
    def station(self) -> str:
        return f"{_ROOT}/{self.name}/station"

    @property
    def orders(self) -> str:
        """Returns the filter for all orders."""
        return f"{_ROOT}/{self.name}/orders/+"

    @property
    def kept(self) -> tuple[str, str]:
        """Returns the filters for what the broker keeps of devices and jobs."""
        return self.device("+"), self.job("+")

    def device(self, ecid: str) -> str:
        return f"{_ROOT}/{self.name}/devices/{ecid}"

    def job(self, job_id: str) -> str:
        return f"{_ROOT}/{self.name}/jobs/{job_id}"

    def answer(self, order_id: str) -> str:
        return f"{_ROOT}/{self.name}/answers/{order_id}"

    def order_id(self, topic: str) -> str | None:
        """Returns the id of the order with this topic; None if it is not one of an order."""
        start = self.orders[:-1]
        return topic[len(start):] if topic.startswith(start) else None
