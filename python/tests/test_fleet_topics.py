"""The topics, and what docs/fleet.md says of them and of orders."""

from __future__ import annotations

import json
import re
from pathlib import Path

import pytest

from fleet_of_tests import validate
from qnrescue.fleet.orders import parse_order
from qnrescue.fleet.settings import _TYPES
from qnrescue.fleet.topics import Topics, check_order_id

PAGE = (Path(__file__).parents[2] / "docs" / "fleet.md").read_text("utf-8")


def test_the_table_of_topics() -> None:
    topics = Topics("<station>")
    assert re.findall(r"^\| `(qnrescue/[^`]*)` \|", PAGE, re.MULTILINE) == [
        topics.availability, topics.station, topics.device("<ECID>"), topics.job("<id>"),
        topics.orders.replace("+", "<id>"), topics.answer("<id>")]


def test_the_orders_of_the_page() -> None:
    orders = re.findall(r'^    (\{"action".*?\})$', PAGE, re.MULTILINE | re.DOTALL)
    assert len(orders) == 3
    for text in orders:
        validate("order", json.loads(text))
        parse_order(text.encode())


def test_the_table_of_settings() -> None:
    table = PAGE[PAGE.index("| key | meaning |"):]
    keys = re.findall(r"^\| (`.*?`) \|", table[:table.index("\n\n")], re.MULTILINE)
    assert {key for cell in keys for key in re.findall(r"`(\w+)`", cell)} == set(_TYPES)


def test_ids_of_orders() -> None:
    topics = Topics("bench-07")
    assert topics.order_id("qnrescue/bench-07/orders/a-1") == "a-1"
    assert topics.order_id("qnrescue/bench-07/orders/") == ""
    assert topics.order_id("qnrescue/bench-08/orders/a-1") is None
    assert topics.order_id("qnrescue/bench-07/jobs/a-1") is None
    assert check_order_id("a_1-B") == "a_1-B"
    for text in ("", "a.b", "a/b", "con"):
        with pytest.raises(ValueError):
            check_order_id(text)
