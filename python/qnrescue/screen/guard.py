"""Decides which requests are let in: by the address in the browser, the password and the token."""

from __future__ import annotations

import base64
import binascii
import ipaddress
import secrets
import time
from collections.abc import Iterable, Mapping

# How many wrong passwords an address may send within the time, in seconds.
_WRONG_PASSWORDS = 5
_WRONG_SECONDS = 60.0
# The fewest characters of a password.
SHORTEST_PASSWORD = 12

TOKEN_HEADER = "X-QNRescue-Token"

# What a browser may do with an answer: only files of this server, no text as HTML or as a script.
HEADERS = {
    "Content-Security-Policy":
        "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self';"
        " img-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none';"
        " require-trusted-types-for 'script'; trusted-types 'none'",
    "X-Content-Type-Options": "nosniff",
    "X-Frame-Options": "DENY",
    "Referrer-Policy": "no-referrer",
    "Cross-Origin-Opener-Policy": "same-origin",
    "Cross-Origin-Resource-Policy": "same-origin",
    "Cache-Control": "no-store",
    "Server": "QNRescue",
}


class Refusal(Exception):
    """A request is not let in; the text says why."""

    def __init__(self, status: int, text: str) -> None:
        super().__init__(text)
        self.status = status


class Guard:
    """What a request has to show."""

    def __init__(self, names: Iterable[str], *, scheme: str = "http", password: str = "",
                 read_only: bool = False) -> None:
        """`names` are those by which browsers may call the server, beside addresses: another name
        may be one that its owner has led to this machine, to let his page read this one. An
        empty password: none is asked for."""
        self._names = {name.lower() for name in names}
        self._scheme = scheme
        self._password = password
        self._wrong: dict[str, list[float]] = {}
        self.read_only = read_only
        self.token = secrets.token_urlsafe(32)

    def check(self, method: str, headers: Mapping[str, str], address: str) -> None:
        """Raises Refusal if the request is not let in. `address` is where it comes from."""
        self._check_host(headers.get("Host", ""))
        if self._password:
            self._check_password(headers.get("Authorization", ""), address)
        if method not in ("GET", "HEAD"):
            self._check_order(headers)

    def _check_host(self, host: str) -> None:
        name = _host_name(host)
        if name not in self._names and not _is_address(name):
            raise Refusal(421, "this server does not have that name")

    def _check_password(self, authorization: str, address: str) -> None:
        recent = [at for at in self._wrong.get(address, ())
                  if time.monotonic() - at < _WRONG_SECONDS]
        if len(recent) >= _WRONG_PASSWORDS:
            raise Refusal(429, "too many wrong passwords; wait a minute")
        if not authorization:
            raise Refusal(401, "a password is needed")
        if not _same(_password_of(authorization), self._password):
            self._forget_old()
            self._wrong[address] = [*recent, time.monotonic()]
            raise Refusal(401, "the password is wrong")

    def _forget_old(self) -> None:
        now = time.monotonic()
        self._wrong = {address: times for address, times in self._wrong.items()
                       if now - times[-1] < _WRONG_SECONDS}

    def _check_order(self, headers: Mapping[str, str]) -> None:
        if self.read_only:
            raise Refusal(403, "this screen is read-only")
        if headers.get("Origin", "") != f"{self._scheme}://{headers.get('Host', '')}":
            raise Refusal(403, "the request comes from another page")
        if not _same(headers.get(TOKEN_HEADER, ""), self.token):
            raise Refusal(403, "the request has no valid token")


def is_loopback(host: str) -> bool:
    """Returns whether only this machine reaches the host."""
    return host.lower() == "localhost" or (
        _is_address(host) and ipaddress.ip_address(host).is_loopback)


def _same(one: str, other: str) -> bool:
    # A header may have bytes that are no text.
    return secrets.compare_digest(one.encode(errors="surrogateescape"), other.encode())


def _is_address(name: str) -> bool:
    try:
        ipaddress.ip_address(name)
    except ValueError:
        return False
    return True


def _host_name(host: str) -> str:
    """Returns the name of a Host header, without a port."""
    if host.startswith("["):
        return host[1:].partition("]")[0]
    return host.partition(":")[0].lower()


def _password_of(authorization: str) -> str:
    """Returns the password of a Basic authorization; empty if there is none."""
    kind, _, value = authorization.partition(" ")
    if kind.lower() != "basic":
        return ""
    try:
        return base64.b64decode(value, validate=True).decode("utf-8").partition(":")[2]
    except (binascii.Error, ValueError):
        return ""
