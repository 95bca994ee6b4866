from __future__ import annotations

import json
from collections.abc import Callable
from typing import Any

import jsonschema
import pytest
from hypothesis import given
from hypothesis import strategies as st

from fleet_of_tests import DEVICE, message, validate
from qnrescue.fleet.orders import LONGEST_PAYLOAD, OrderFault, check_time, parse_order

CANCEL = {"action": "cancel", "job": "a-1", "not_after": 5}
EXIT_RECOVERY = {"action": "exit-recovery", "device": DEVICE, "not_after": 5}


def parse(value: object) -> object:
    return parse_order(json.dumps(value).encode())


def test_an_order_to_restore() -> None:
    order = parse_order(json.dumps(message(
        device=DEVICE.lower(), sha256="AB" * 32, not_after=17,
        options={"erase": True, "enter_restore_mode": True, "restore_timeout": 9})).encode())
    assert (order.action, order.device, order.bundle, order.sha256, order.not_after) == (
        "restore", DEVICE, "a.ipsw", "ab" * 32, 17.0)
    assert (order.erase, order.enter_restore_mode, order.restore_timeout) == (True, True, 9)


def test_without_options_nothing_is_erased() -> None:
    order = parse_order(json.dumps(message()).encode())
    assert (order.erase, order.enter_restore_mode, order.restore_timeout) == (False, False, None)


def test_the_other_orders() -> None:
    assert parse_order(json.dumps(CANCEL).encode()).job == "a-1"
    assert parse_order(json.dumps(EXIT_RECOVERY).encode()).device == DEVICE


@pytest.mark.parametrize("name", [
    "iPhone17,1_18.0_22A3354_Restore.ipsw", "a", "Restore (2).ipsw", "a b+c-d_e", "console.ipsw"])
def test_names_of_bundles(name: str) -> None:
    assert parse_order(json.dumps(message(bundle=name)).encode()).bundle == name


BAD_BUNDLES = ["", ".", "..", "../a.ipsw", "..\\a.ipsw", "a/b", "a\\b", "/etc/passwd", "C:a",
               "C:\\a", "\\\\server\\share\\a", "//server/a", "https://example.com/a",
               "a.ipsw:stream",
               "a.ipsw.", "a.ipsw ", " a", ".hidden", "-a", "--erase", "a\0b", "a\nb", "%TEMP%",
               "$HOME", "~", "~root", "a*", "a?", "NUL", "con.ipsw", "COM1", "aux .x", "a\u202eb",
               "ａ", "a" * 129, 7, None, ["a"], {"a": 1}, True]


@pytest.mark.parametrize("name", BAD_BUNDLES)
def test_what_is_no_name_of_a_bundle(name: object) -> None:
    with pytest.raises(OrderFault, match="^not a valid bundle$"):
        parse({**message(), "bundle": name})


@pytest.mark.parametrize("value, why", [
    (message(action="reboot"), "the action is none of"),
    (message(action=["restore"]), "the action is none of"),
    (message(action=None), "the action is none of"),
    (message(not_after=None), "without not_after"),
    (message(device=None, bundle=None), "without bundle, device"),
    (message(not_after="tomorrow"), "not_after is not a time"),
    (message(not_after=True), "not_after is not a time"),
    (message(not_after=-1), "not_after is not a time"),
    (message(not_after=1 << 40), "not_after is not a time"),
    (message(not_after=float("nan")), "not_after is not a time"),
    (message(not_after=float("inf")), "not_after is not a time"),
    (message(device="001E2D4C0A91C02"), "not a valid device"),
    (message(device=f"{DEVICE}\n"), "not a valid device"),
    (message(device=0x1E2D4C0A91C026), "not a valid device"),
    (message(sha256="ab"), "not a valid sha256"),
    (message(sha256=""), "not a valid sha256"),
    (message(options=["--erase"]), "the options are not an object"),
    (message(options="--erase"), "the options are not an object"),
    (message(options={"erase": 1}), "erase is not true or false"),
    (message(options={"erase": "true"}), "erase is not true or false"),
    (message(options={"enter_restore_mode": None}), "enter_restore_mode is not true or false"),
    (message(options={"restore_timeout": 0}), "restore_timeout is not a number"),
    (message(options={"restore_timeout": 1e3}), "restore_timeout is not a number"),
    (message(options={"restore_timeout": 86401}), "restore_timeout is not a number"),
    (message(options={"restore_timeout": True}), "restore_timeout is not a number"),
    (message(options={"amr_logfile": "x"}), "unknown: 'amr_logfile'"),
    (message(tool=["calc.exe"]), "unknown: 'tool'"),
    (message(plist="a.plist"), "unknown: 'plist'"),
    (message(job="a"), "unknown: 'job'"),
    ({**CANCEL, "device": DEVICE}, "unknown: 'device'"),
    ({**CANCEL, "job": "../a"}, "not a valid job"),
    ({**EXIT_RECOVERY, "bundle": "a"}, "unknown: 'bundle'"),
])
def test_what_is_refused(value: object, why: str) -> None:
    with pytest.raises(OrderFault, match=f"^{why}"):
        parse(value)


@pytest.mark.parametrize("payload, why", [
    (b"", "not JSON"), (b"{", "not JSON"),
    (b"\xff\xfe{\0}\0", "not JSON"), (b"\xef\xbb\xbf{}", "not JSON"),
    (b"[" * 16000, "not JSON"), (b"9" * 16000, "not JSON"), (b"[]", "not a JSON object"),
    (b"null", "not a JSON object"), (b'"restore"', "not a JSON object"),
    (b'{"action": "cancel", "action": "restore"}', "a key comes twice"),
    (b'{"options": {"erase": false, "erase": true}}', "a key comes twice"),
    (b" " * (LONGEST_PAYLOAD + 1), "the order has 16385 bytes"),
    (b"{" + b'"\\ud800": 1' + b"}", "the action is none of"),
])
def test_payloads_that_are_refused(payload: bytes, why: str) -> None:
    with pytest.raises(OrderFault, match=f"^{why}"):
        parse_order(payload)


@given(st.binary(max_size=200))
def test_any_payload_is_an_order_or_refused(payload: bytes) -> None:
    with pytest.raises(OrderFault):
        parse_order(payload)


VALUES: st.SearchStrategy[Any] = st.recursive(
    st.none() | st.booleans() | st.integers(-9, 99999) | st.text(max_size=9)
    | st.sampled_from(["restore", "cancel", "exit-recovery", DEVICE, "a.ipsw", "../a", "AB" * 32]),
    lambda inner: st.lists(inner, max_size=3) | st.dictionaries(
        st.sampled_from(["erase", "enter_restore_mode", "restore_timeout", "x"]), inner))


@given(st.sampled_from([message(), CANCEL, EXIT_RECOVERY]),
       st.dictionaries(st.sampled_from(["action", "device", "bundle", "sha256", "options", "job",
                                        "not_after", "x"]), VALUES, max_size=2))
def test_the_schema_allows_what_is_parsed(order: dict[str, Any], changes: dict[str, Any]) -> None:
    value = {**order, **changes}
    assert accepts(lambda: parse(value), OrderFault) == accepts(
        lambda: validate("order", value), jsonschema.ValidationError)


def accepts(check: Callable[[], object], fault: type[Exception]) -> bool:
    try:
        check()
    except fault:
        return False
    return True


def test_the_time() -> None:
    order = parse_order(json.dumps(message(not_after=1000)).encode())
    check_time(order, 1000, 60)
    check_time(order, 940, 60)
    with pytest.raises(OrderFault, match="too late: the order was valid until 1000"):
        check_time(order, 1000.1, 60)
    with pytest.raises(OrderFault, match="more than 60 s are left"):
        check_time(order, 939.9, 60)
