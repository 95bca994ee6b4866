"""A connection to an MQTT broker, for one thread. It is not used again after it has ended: the next
one begins without anything that this one left."""

from __future__ import annotations

import contextlib
import ssl
import time
from collections.abc import Callable, Iterable
from pathlib import Path
from typing import Any, Protocol

from paho.mqtt import client as mqtt

from qnrescue.fleet.messages import OFFLINE
from qnrescue.fleet.settings import Settings
from qnrescue.fleet.topics import Topics

# How often the broker hears of the station, in seconds. After one and a half times as long it
# publishes the last will.
KEEP_ALIVE = 20
# How long the broker may take to accept the station, in seconds.
_ACCEPT_SECONDS = 20.0
# At the end, how long to wait for what was published last, in seconds.
_LAST_SECONDS = 3.0
# In an answer to a subscription: it was not granted.
_NOT_GRANTED = 0x80


class Disconnected(Exception):
    """There is no connection; the text says why, for people."""


class Connection:
    """A connection that is established, with the last will that the station is offline."""

    def __init__(self, settings: Settings, on_message: Callable[[str, bytes, bool], None]) -> None:
        """Connects. `on_message` gets the topic, the payload, and whether the broker had kept the
        message; what it raises comes out of `step`, and the message comes again. Raises
        Disconnected."""
        topics = Topics(settings.station)
        self._on_message = on_message
        self._deliveries: dict[int, Callable[[], None]] = {}
        self._is_accepted = False
        self._fault = ""
        # The broker keeps the session, so that orders that come meanwhile are not lost.
        self._client = new_client(f"qnrescue-{settings.station}", clean_session=False)
        self._client.enable_logger()
        self._client.on_connect = self._connected
        self._client.on_message = self._received
        self._client.on_publish = self._delivered
        self._client.on_subscribe = self._subscribed
        self._client.will_set(topics.availability, OFFLINE, qos=1, retain=True)
        if settings.user:
            self._client.username_pw_set(settings.user, settings.password)
        with _faults():
            if settings.broker.uses_tls:
                self._client.tls_set_context(tls_context(settings))
            self._client.connect(settings.broker.host, settings.broker.port, KEEP_ALIVE)
        limit = time.monotonic() + _ACCEPT_SECONDS
        while not self._is_accepted:
            self.step(0.1)
            if time.monotonic() >= limit:
                self.drop()
                raise Disconnected("the broker does not answer")

    def step(self, seconds: float) -> None:
        """Receives and sends for up to so many seconds. Raises Disconnected."""
        with _faults():
            status = self._client.loop(seconds)
        if self._fault or status != mqtt.MQTT_ERR_SUCCESS:
            self.drop()
            raise Disconnected(self._fault or mqtt.error_string(status))

    def subscribe(self, filters: Iterable[str]) -> None:
        """Asks for the messages of these topics. If they are not granted, the connection ends."""
        self._client.subscribe([(each, 1) for each in filters])

    def unsubscribe(self, filters: Iterable[str]) -> None:
        """Ends the subscription."""
        self._client.unsubscribe(list(filters))

    def publish(self, topic: str, payload: str, *, retain: bool,
                then: Callable[[], None] | None = None) -> None:
        """Sends a message, and calls `then` when the broker has it."""
        information = self._client.publish(topic, payload, qos=1, retain=retain)
        if then is not None:
            self._deliveries[information.mid] = then

    def close(self, availability: str) -> None:
        """Says that the station goes, and ends the connection."""
        gone: list[bool] = []
        self.publish(availability, OFFLINE, retain=True, then=lambda: gone.append(True))
        limit = time.monotonic() + _LAST_SECONDS
        with contextlib.suppress(Disconnected):
            while not gone and time.monotonic() < limit:
                self.step(0.1)
            self._client.disconnect()
            self.step(0.1)

    def drop(self) -> None:
        """Ends the connection as if it were cut: the broker publishes the last will."""
        socket = self._client.socket()
        if socket is not None:
            socket.close()

    # What the client calls. Its versions give different arguments after these.

    def _connected(self, _client: Any, _data: Any, _flags: Any, reason: Any, *_rest: Any) -> None:
        code = getattr(reason, "value", reason)
        if code:
            self._fault = "the broker refuses the station: " + (
                mqtt.connack_string(code) if isinstance(reason, int) else str(reason))
        self._is_accepted = not code

    def _received(self, _client: Any, _data: Any, message: Any) -> None:
        try:
            topic = str(message.topic)
        except UnicodeDecodeError:
            return
        self._on_message(topic, bytes(message.payload), bool(message.retain))

    def _delivered(self, _client: Any, _data: Any, mid: int, *_rest: Any) -> None:
        then = self._deliveries.pop(mid, None)
        if then is not None:
            then()

    def _subscribed(self, _client: Any, _data: Any, _mid: int, grants: Any, *_rest: Any) -> None:
        if any(getattr(each, "value", each) >= _NOT_GRANTED for each in grants):
            self._fault = "the broker does not let the station read its topics"


class Secrets(Protocol):
    """What proves who one is, and who the broker is."""

    @property
    def ca(self) -> Path | None:
        """Returns the certificates that the broker's rests on; None: those of the system."""

    @property
    def certificate(self) -> Path | None:
        """Returns the own certificate."""

    @property
    def key(self) -> Path | None:
        """Returns its key."""


def new_client(name: str, *, clean_session: bool) -> Any:
    """Returns a client that is not connected, of any version of the library."""
    versions: Any = getattr(mqtt, "CallbackAPIVersion", None)  # since version 2
    named = {} if versions is None else {"callback_api_version": versions.VERSION2}
    make: Any = mqtt.Client
    return make(client_id=name, clean_session=clean_session, protocol=mqtt.MQTTv311, **named)


def tls_context(secrets: Secrets) -> ssl.SSLContext:
    """Returns a context that verifies the broker. Raises OSError."""
    context = ssl.create_default_context(cafile=secrets.ca and str(secrets.ca))
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    if secrets.certificate is not None and secrets.key is not None:
        context.load_cert_chain(secrets.certificate, secrets.key)
    return context


class _faults(contextlib.AbstractContextManager[None]):
    """Turns what goes wrong with the network into Disconnected."""

    def __exit__(self, kind: Any, fault: Any, trace: Any) -> None:
        if isinstance(fault, OSError):  # also: TLS, and names that are not found
            raise Disconnected(str(fault)) from fault
