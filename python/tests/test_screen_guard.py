"""Which requests are let in."""

from __future__ import annotations

import base64

import pytest

from qnrescue.screen import guard as guard_module
from qnrescue.screen.guard import TOKEN_HEADER, Guard, Refusal, is_loopback

PASSWORD = "correct horse battery"


def status(guard: Guard, method: str = "GET", address: str = "192.0.2.1",
           **headers: str) -> int:
    """Returns the status of the refusal; 200 if the request is let in."""
    try:
        guard.check(method, {"Host": "localhost:8470", **headers}, address)
    except Refusal as refusal:
        return refusal.status
    return 200


def basic(password: str) -> str:
    """Returns the header with a password."""
    return "Basic " + base64.b64encode(f"anybody:{password}".encode()).decode()


@pytest.mark.parametrize("host", ["localhost", "LOCALHOST:8470", "127.0.0.1:8470", "[::1]:8470",
                                  "192.0.2.7"])
def test_lets_in_its_names_and_addresses(host: str) -> None:
    assert status(Guard(["localhost"]), Host=host) == 200


@pytest.mark.parametrize("host", ["", "evil.example", "evil.example:8470", "localhost.evil.example",
                                  "127.0.0.1.evil.example", "[::1", "[evil.example]:8470"])
def test_refuses_other_names(host: str) -> None:
    expected = 200 if host == "[::1" else 421  # an address, however it is written
    assert status(Guard(["localhost"]), Host=host) == expected


def test_asks_for_the_password() -> None:
    guard = Guard(["localhost"], password=PASSWORD)
    assert status(guard) == 401
    assert status(guard, Authorization=basic("wrong")) == 401
    assert status(guard, Authorization=basic(PASSWORD)) == 200


@pytest.mark.parametrize("text", ["Basic", "Basic ?", "Basic /w==", f"Bearer {PASSWORD}",
                                  PASSWORD, "Basic " + base64.b64encode(b"x").decode()])
def test_refuses_what_is_no_password(text: str) -> None:
    assert status(Guard(["localhost"], password=PASSWORD), Authorization=text) == 401


def test_an_address_that_guesses_has_to_wait(monkeypatch: pytest.MonkeyPatch) -> None:
    now = 1000.0
    monkeypatch.setattr(guard_module.time, "monotonic", lambda: now)
    guard = Guard(["localhost"], password=PASSWORD)
    assert [status(guard, Authorization=basic("wrong")) for _ in range(6)] == [401] * 5 + [429]
    assert status(guard, Authorization=basic(PASSWORD)) == 429
    assert status(guard, Authorization=basic(PASSWORD), address="192.0.2.2") == 200
    now += 61
    assert status(guard, Authorization=basic(PASSWORD)) == 200


def order_headers(guard: Guard) -> dict[str, str]:
    """Returns the headers of an order that the page sends."""
    return {"Origin": "http://localhost:8470", TOKEN_HEADER: guard.token}


def test_lets_in_orders_of_the_page() -> None:
    guard = Guard(["localhost"])
    assert status(guard, "POST", **order_headers(guard)) == 200


@pytest.mark.parametrize("change", [
    {"Origin": ""}, {"Origin": "null"}, {"Origin": "http://evil.example"},
    {"Origin": "https://localhost:8470"}, {"Origin": "http://localhost:8471"},
    {TOKEN_HEADER: ""}, {TOKEN_HEADER: "guessed"}, {TOKEN_HEADER: "gu\xe9ssed"},
    {TOKEN_HEADER: "gu\udce9ssed"}])
def test_refuses_orders_of_other_pages(change: dict[str, str]) -> None:
    guard = Guard(["localhost"])
    for method in ("POST", "PUT", "DELETE", "OPTIONS"):
        assert status(guard, method, **{**order_headers(guard), **change}) == 403


def test_read_only_refuses_all_orders() -> None:
    guard = Guard(["localhost"], read_only=True)
    assert status(guard, "POST", **order_headers(guard)) == 403
    assert status(guard) == 200


def test_each_guard_has_another_token() -> None:
    assert Guard([]).token != Guard([]).token
    assert len(Guard([]).token) >= 32


def test_knows_the_own_machine() -> None:
    assert all(map(is_loopback, ("127.0.0.1", "127.3.2.1", "::1", "localhost")))
    assert not any(map(is_loopback, ("0.0.0.0", "::", "192.0.2.1", "bench.example", "")))
