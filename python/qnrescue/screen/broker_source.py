"""The stations of a fleet, by its MQTT broker. docs/fleet.md describes the topics."""

from __future__ import annotations

import asyncio
import logging
import time
import uuid
from collections import defaultdict
from collections.abc import Callable
from typing import Any

from paho.mqtt import client as mqtt

from qnrescue.fleet.connection import KEEP_ALIVE, new_client, tls_context
from qnrescue.fleet.messages import OFFLINE, ONLINE, REFRESH_SECONDS, encode
from qnrescue.fleet.orders import CANCEL, RESTORE
from qnrescue.fleet.topics import check_station
from qnrescue.jobs import Job
from qnrescue.screen.board import Board, Station
from qnrescue.screen.broker_settings import BrokerAccess
from qnrescue.screen.fleet_messages import (MessageFault, read_answer, read_device, read_job,
                                            read_station)
from qnrescue.screen.source import Answer, Papers, RestoreRequest
from qnrescue.steps_file import Step

log = logging.getLogger("qnrescue.screen")

_TOPICS = ("availability", "station", "devices/+", "jobs/+", "answers/+")
# How long an order is valid, and how long a station may take to answer it, in seconds.
_VALID_SECONDS = 60.0
_ANSWER_SECONDS = 20.0
# How long after a connection the broker may still send what it has kept, and a station connect
# again, in seconds; and until when all stations have published everything again, for a broker that
# sends nothing of what it has kept.
_KEPT_SECONDS = 45.0
_REFRESHED_SECONDS = REFRESH_SECONDS + 60.0
# How many steps of a job are kept.
_MOST_STEPS = 200
# In an answer to a subscription: it was not granted.
_NOT_GRANTED = 0x80
# How long to wait before the broker is tried again, at first and at most, in seconds.
_FIRST_WAIT, _LONGEST_WAIT = 1, 15


class BrokerSource:
    """The stations of a fleet, for the thread of an event loop."""

    def __init__(self, access: BrokerAccess) -> None:
        self._access = access
        self._board = Board()
        self._loop: asyncio.AbstractEventLoop | None = None
        self._is_connected = False
        self._refusal = ""  # why the broker does not let the screen in
        self._stations: dict[str, Station] = {}  # as they said themselves
        self._online: set[str] = set()
        self._heard: dict[str, float] = {}
        self._connection = 0  # the number of the latest one
        self._sends_kept = False  # whether the broker has, in this connection
        # The connections in which something was said last, by station, kind and id.
        self._said: dict[str, dict[tuple[str, str], int]] = defaultdict(dict)
        self._steps: dict[tuple[str, str], list[Step]] = defaultdict(list)
        self._answers: dict[tuple[str, str], asyncio.Future[Answer]] = {}  # by station and order
        self._client = self._new_client()

    def _new_client(self) -> Any:
        client = new_client(f"qnrescue-screen-{uuid.uuid4()}", clean_session=True)
        access = self._access
        if access.user:
            client.username_pw_set(access.user, access.password)
        if access.broker.uses_tls:
            client.tls_set_context(tls_context(access))
        client.reconnect_delay_set(_FIRST_WAIT, _LONGEST_WAIT)
        client.on_connect = self._connected
        client.on_disconnect = self._disconnected
        client.on_message = self._received
        client.on_subscribe = self._subscribed
        return client

    async def run(self, board: Board) -> None:
        """Keeps the board true until it is cancelled."""
        self._board = board
        self._loop = asyncio.get_running_loop()
        board.notice = "not connected to the broker yet"
        broker = self._access.broker
        self._client.connect_async(broker.host, broker.port, KEEP_ALIVE)
        self._client.loop_start()
        try:
            await asyncio.Event().wait()
        finally:
            self._client.disconnect()
            await asyncio.to_thread(self._client.loop_stop)

    # What the client calls, in its thread. Its versions give different arguments after these.

    def _connected(self, _client: Any, _data: Any, _flags: Any, reason: Any, *_rest: Any) -> None:
        code = getattr(reason, "value", reason)
        if code:
            text = mqtt.connack_string(code) if isinstance(reason, int) else str(reason)
            self._soon(lambda: self._refuse(f"the broker refuses the screen: {text}"))
        else:
            self._client.subscribe([(f"qnrescue/+/{each}", 1) for each in _TOPICS])
            self._soon(self._enter)

    def _disconnected(self, *_: Any) -> None:
        self._soon(self._lose)

    def _subscribed(self, _client: Any, _data: Any, _mid: int, grants: Any, *_rest: Any) -> None:
        if any(getattr(each, "value", each) >= _NOT_GRANTED for each in grants):
            self._soon(lambda: self._refuse("the broker does not let the screen read the topics"))

    def _received(self, _client: Any, _data: Any, message: Any) -> None:
        try:
            topic = str(message.topic)
        except UnicodeDecodeError:
            return
        payload, was_kept = bytes(message.payload), bool(message.retain)
        self._soon(lambda: self._take(topic, payload, was_kept))

    def _soon(self, act: Callable[[], None]) -> None:
        if self._loop is not None and not self._loop.is_closed():
            self._loop.call_soon_threadsafe(act)

    # What happens in the thread of the event loop

    def _enter(self) -> None:
        self._is_connected = True
        self._refusal = self._board.notice = ""
        self._connection += 1
        self._sends_kept = False
        self._online.clear()
        self._show_stations()
        if self._loop is not None:
            for seconds in (_KEPT_SECONDS, _REFRESHED_SECONDS):
                self._loop.call_later(seconds, self._forget_what_is_old, self._connection,
                                      seconds == _REFRESHED_SECONDS)

    def _refuse(self, reason: str) -> None:
        self._board.notice = self._refusal = reason

    def _lose(self) -> None:
        self._is_connected = False
        self._board.notice = self._refusal or "no connection to the broker"
        self._show_stations()

    def _forget_what_is_old(self, connection: int, is_refreshed: bool) -> None:
        """Removes what was not said in this connection."""
        if connection != self._connection or not self._is_connected \
                or not (self._sends_kept or is_refreshed):
            return
        for station, said in list(self._said.items()):
            for (kind, name), latest in list(said.items()):
                if latest != connection:
                    self._remove(station, kind, name)

    def _take(self, topic: str, payload: bytes, was_kept: bool) -> None:
        _, station, kind, *rest = topic.split("/")
        name = rest[0] if rest else ""
        self._sends_kept |= was_kept
        try:
            self._note(check_station(station), kind, name, payload)
        except (MessageFault, ValueError) as fault:
            log.warning("%s: %s", topic, fault)
            return
        # The last will is no word of the station.
        if not was_kept and payload not in (b"", OFFLINE.encode()) and station in self._stations:
            self._heard[station] = time.time()
            if station not in self._online:
                self._set_availability(station, True)

    def _note(self, station: str, kind: str, name: str, payload: bytes) -> None:
        if kind == "answers":
            answer = read_answer(payload)
            waiting = self._answers.get((station, name))
            if waiting is not None and not waiting.done():
                waiting.set_result(answer)
            return
        if not payload:
            self._remove(station, kind, name)
            return
        if kind == "availability":
            self._set_availability(station, payload == ONLINE.encode())
        elif kind == "station":
            self._stations[station], heard = read_station(station, payload)
            heard = min(heard, time.time())  # the clocks may differ
            self._heard[station] = max(heard, self._heard.get(station, 0.0))
            self._show_stations()
        elif kind == "devices":
            self._board.set_device(station, read_device(name, payload))
        elif kind == "jobs":
            self._note_job(station, read_job(name, payload))
        self._said[station][kind, name] = self._connection

    def _note_job(self, station: str, job: Job) -> None:
        self._board.set_job(station, job)
        steps = self._steps[station, job.id]
        if job.step and len(steps) < _MOST_STEPS and (not steps or steps[-1].name != job.step):
            steps.append(Step(job.step, job.seconds))

    def _set_availability(self, station: str, is_online: bool) -> None:
        (self._online.add if is_online else self._online.discard)(station)
        self._stations.setdefault(station, Station(station))
        self._show_stations()

    def _remove(self, station: str, kind: str, name: str) -> None:
        said = self._said[station]
        said.pop((kind, name), None)
        if kind == "devices":
            self._board.remove_device(station, name)
        elif kind == "jobs":
            self._board.remove_job(station, name)
            self._steps.pop((station, name), None)
        elif kind == "availability":
            self._online.discard(station)
            self._show_stations()
        if not said:
            del self._said[station]
            self._stations.pop(station, None)
            self._heard.pop(station, None)
            self._board.remove_station(station)

    def _show_stations(self) -> None:
        for name, station in self._stations.items():
            is_online = self._is_connected and name in self._online
            self._board.set_station(station.seen(
                is_online, None if is_online else self._heard.get(name)))

    # Orders

    async def order(self, station: str, request: RestoreRequest, asked_by: str) -> Answer:
        """Orders a restore."""
        return await self._ask(station, request.id, {
            "action": RESTORE, "device": request.device, "bundle": request.bundle,
            "options": {"erase": request.erase}})

    async def cancel(self, station: str, job_id: str, asked_by: str) -> Answer:
        """Orders the end of a job."""
        return await self._ask(station, str(uuid.uuid4()), {"action": CANCEL, "job": job_id})

    async def _ask(self, station: str, order_id: str, order: dict[str, Any]) -> Answer:
        """Returns the answer of the station. An order whose answer is waited for is not sent
        again."""
        if not self._is_connected:
            return Answer(False, "no connection to the broker; nothing was sent", is_known=False)
        key = station, order_id
        waiting = self._answers.get(key)
        if waiting is None:
            waiting = self._answers[key] = asyncio.get_running_loop().create_future()
            payload = encode({**order, "not_after": time.time() + _VALID_SECONDS})
            self._client.publish(f"qnrescue/{station}/orders/{order_id}", payload, qos=1)
        try:
            return await asyncio.wait_for(asyncio.shield(waiting), _ANSWER_SECONDS)
        except asyncio.TimeoutError:
            return Answer(False, f"the station has not answered; within {_VALID_SECONDS:g} s of the"
                                 " order it may still carry it out", is_known=False)
        finally:
            self._answers.pop(key, None)

    async def papers(self, station: str, job_id: str) -> Papers:
        """Returns what is known about the job beside its state."""
        return Papers(tuple(self._steps.get((station, job_id), ())),
                      note="The documents are at the station. The steps are those that were seen"
                           " from here.")
