from __future__ import annotations

import pytest
from hypothesis import given
from hypothesis import strategies as st

from plists import ECID
from qnrescue.jobs import JobOrder, check_job_id, new_job_id


@pytest.mark.parametrize("text", ["a", "0", "order-17", "a.b_c-d", "A" * 64, "console", "com",
                                  "x.con"])
def test_ids(text: str) -> None:
    assert check_job_id(text) == text


@pytest.mark.parametrize("text", ["", ".", "..", "a/b", "a\\b", "-a", ".a", "_a", "a b", "a\n", "ä",
                                  "A" * 65, "con", "NUL", "nul.txt", "COM1", "lpt9.log", "a:b",
                                  "a.", "a\0"])
def test_what_is_not_an_id(text: str) -> None:
    with pytest.raises(ValueError):
        check_job_id(text)


@given(st.text())
def test_an_id_is_one_part_of_a_path(text: str) -> None:
    try:
        check_job_id(text)
    except ValueError:
        return
    assert text.isascii() and not set(text) & set('/\\:*?"<>| ')


def test_new_ids_differ() -> None:
    assert check_job_id(new_job_id()) != check_job_id(new_job_id())


def test_arguments() -> None:
    order = JobOrder(ECID.lower(), "b.ipsw", erase=True, restore_timeout=5, tool=["a", "b"])
    assert order.arguments("log") == ["--restore", "b.ipsw", "--ecid", ECID, "--erase",
                                      "--restore-timeout", "5", "--amr-logfile", "log"]
    assert order.tool == ("a", "b")
    order = JobOrder(ECID, plist="o.plist", detect_timeout=7, enter_restore_mode=True)
    assert order.arguments("log") == [
        "--restore-plist", "o.plist", "--ecid", ECID, "--detect-timeout", "7",
        "--enter-restore-mode", "--amr-logfile", "log"]


@pytest.mark.parametrize("how", [
    {}, {"bundle": "b", "plist": "p"}, {"plist": "p", "erase": True},
    {"plist": "p", "restore_timeout": 5}, {"bundle": "b", "tool": ()}])
def test_orders_that_do_not_fit(how) -> None:
    with pytest.raises(ValueError):
        JobOrder(ECID, **how)


def test_an_order_needs_an_ecid() -> None:
    with pytest.raises(ValueError):
        JobOrder("all", "b")
