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
from qnrescue.fleet.messages import ONLINE, encode
from qnrescue.fleet.orders import CANCEL, RESTORE
from qnrescue.fleet.topics import check_station
from qnrescue.jobs import check_job_id
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
# How long after a connection the broker still sends what it has kept, in seconds.
_KEPT_SECONDS = 10.0
# How long to wait before the broker is tried again, at first and at most, in seconds.
_FIRST_WAIT, _LONGEST_WAIT = 1, 15


class BrokerSource:
    """The stations of a fleet, for the thread of an event loop."""

    def __init__(self, access: BrokerAccess) -> None:
        self._access = access
        self._board = Board()
        self._loop: asyncio.AbstractEventLoop | None = None
        self._is_connected = False
        self._stations: dict[str, Station] = {}  # as they said themselves
        self._online: set[str] = set()
        self._heard: dict[str, float] = {}
        self._kept: set[tuple[str, str, str]] = set()  # what has come since the connection
        self._shown: set[tuple[str, str, str]] = set()  # stations, kinds and ids on the board
        self._steps: dict[tuple[str, str], list[Step]] = defaultdict(list)
        self._answers: dict[str, asyncio.Future[Answer]] = {}
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
            self._soon(lambda: self._lose(f"the broker refuses the screen: {text}"))
        else:
            self._client.subscribe([(f"qnrescue/+/{each}", 1) for each in _TOPICS])
            self._soon(self._enter)

    def _disconnected(self, *_: Any) -> None:
        self._soon(lambda: self._lose("no connection to the broker"))

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
        self._board.notice = ""
        self._kept = set()
        self._show_stations()
        if self._loop is not None:
            self._loop.call_later(_KEPT_SECONDS, self._forget_what_was_not_kept, self._kept)

    def _lose(self, notice: str) -> None:
        self._is_connected = False
        self._board.notice = notice
        self._show_stations()

    def _forget_what_was_not_kept(self, kept: set[tuple[str, str, str]]) -> None:
        """Removes what left while there was no connection."""
        if kept is self._kept and self._is_connected:
            for station, kind, name in self._shown - kept:
                self._remove(station, kind, name)

    def _take(self, topic: str, payload: bytes, was_kept: bool) -> None:
        _, station, kind, *rest = topic.split("/")
        name = rest[0] if rest else ""
        try:
            self._note(check_station(station), kind, name, payload)
        except (MessageFault, ValueError) as fault:
            log.warning("%s: %s", topic, fault)
            return
        if not was_kept:
            self._heard[station] = time.time()

    def _note(self, station: str, kind: str, name: str, payload: bytes) -> None:
        if kind == "answers":
            answer = read_answer(payload)
            waiting = self._answers.get(name)
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
            self._heard[station] = max(heard, self._heard.get(station, 0.0))
            self._show_stations()
        elif kind == "devices":
            self._board.set_device(station, read_device(name, payload))
        elif kind == "jobs":
            job = read_job(name, payload)
            self._board.set_job(station, job)
            steps = self._steps[station, name]
            if job.step and (not steps or steps[-1].name != job.step):
                steps.append(Step(job.step, job.seconds))
        self._shown.add((station, kind, name))
        self._kept.add((station, kind, name))

    def _set_availability(self, station: str, is_online: bool) -> None:
        (self._online.add if is_online else self._online.discard)(station)
        self._stations.setdefault(station, Station(station))
        self._show_stations()

    def _remove(self, station: str, kind: str, name: str) -> None:
        self._shown.discard((station, kind, name))
        if kind == "devices":
            self._board.remove_device(station, name)
        elif kind == "jobs":
            self._board.remove_job(station, name)
            self._steps.pop((station, name), None)
        elif kind in ("availability", "station") and not any(
                each == station for each, *_ in self._shown):
            self._stations.pop(station, None)
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
        if not self._is_connected:
            return Answer(False, "no connection to the broker; nothing was sent")
        self._answers[order_id] = asyncio.get_running_loop().create_future()
        payload = encode({**order, "not_after": time.time() + _VALID_SECONDS})
        try:
            self._client.publish(f"qnrescue/{station}/orders/{check_job_id(order_id)}", payload,
                                 qos=1)
            return await asyncio.wait_for(self._answers[order_id], _ANSWER_SECONDS)
        except asyncio.TimeoutError:
            return Answer(False, f"the station has not answered; within {_VALID_SECONDS:g} s of the"
                                 " order it may still carry it out")
        finally:
            del self._answers[order_id]

    async def papers(self, station: str, job_id: str) -> Papers:
        """Returns what is known about the job beside its state."""
        return Papers(tuple(self._steps.get((station, job_id), ())),
                      note="The documents are at the station. The steps are those that were seen"
                           " from here.")
