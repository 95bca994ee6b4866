"""Serves the page, what it shows and what it orders."""

from __future__ import annotations

import asyncio
import contextlib
import dataclasses
import hashlib
import json
import logging
import re
import time
from collections.abc import AsyncIterator, Mapping
from pathlib import Path
from typing import Any

from aiohttp import web

from qnrescue.commands import clean_ecid
from qnrescue.jobs import Job, JobState, check_job_id
from qnrescue.screen.board import Board, Station
from qnrescue.screen.feed import Feed
from qnrescue.screen.guard import HEADERS, Guard, Refusal
from qnrescue.screen.source import Answer, RestoreRequest, Source

log = logging.getLogger("qnrescue.screen")

_PAGE = Path(__file__).with_name("page")
_TYPES = {".html": "text/html", ".css": "text/css", ".js": "text/javascript",
          ".svg": "image/svg+xml"}
# How often the viewers are sent what has changed, and at the least something, in seconds.
_PUBLISH_SECONDS = 0.25
_BEAT_SECONDS = 2.0
# How long an order may take to be seen by the screen, in seconds.
_KNOWN_SECONDS = 3.0
_MOST_VIEWERS = 100
# How long a viewer may take to receive something before it is let go, in seconds.
_TAKE_SECONDS = 10.0
# The longest order, in bytes.
_LONGEST_ORDER = 4096
# What has to be typed to erase a device.
_CONFIRMATION = "erase"


class ScreenServer:
    """The server of the page."""

    def __init__(self, source: Source, guard: Guard) -> None:
        self._source = source
        self._guard = guard
        self._board = Board()
        self._feed = Feed()
        self._page = _digest_of_page()

    def app(self) -> web.Application:
        """Returns the web application."""
        app = web.Application(middlewares=[self._let_in], client_max_size=_LONGEST_ORDER)
        app.router.add_get("/events", self._events, allow_head=False)
        app.router.add_get("/job", self._job)
        app.router.add_get("/documents", self._documents)
        app.router.add_post("/restore", self._restore)
        app.router.add_post("/cancel", self._cancel)
        app.router.add_get("/{name:[a-z]*(\\.[a-z]+)?}", _file)
        app.on_response_prepare.append(_add_headers)
        app.cleanup_ctx.append(self._background)
        app.on_shutdown.append(self._close)
        return app

    @web.middleware
    async def _let_in(self, request: web.Request, handler: Any) -> web.StreamResponse:
        try:
            self._guard.check(request.method, request.headers, request.remote or "")
        except Refusal as refusal:
            extra = {"WWW-Authenticate": 'Basic realm="QNRescue", charset="UTF-8"'} \
                if refusal.status == 401 else {}
            return web.Response(status=refusal.status, text=f"{refusal}\n", headers=extra)
        response: web.StreamResponse = await handler(request)
        return response

    # What changes by itself

    async def _background(self, app: web.Application) -> AsyncIterator[None]:
        tasks = [asyncio.create_task(self._run_source()), asyncio.create_task(self._publish())]
        yield
        for task in tasks:
            task.cancel()
            with contextlib.suppress(asyncio.CancelledError):
                await task

    async def _run_source(self) -> None:
        try:
            await self._source.run(self._board)
        except Exception as fault:
            self._board.notice = f"what is shown is old: {fault!r}"
            log.exception("the stations are not followed any more")

    async def _publish(self) -> None:
        beaten = 0.0
        while True:
            self._feed.publish(self._board.view(time.time()))
            if time.monotonic() - beaten >= _BEAT_SECONDS:
                beaten = time.monotonic()
                self._feed.beat(time.time(), self._board.notice)
            await asyncio.sleep(_PUBLISH_SECONDS)

    async def _close(self, app: web.Application) -> None:
        self._feed.close()

    async def _events(self, request: web.Request) -> web.StreamResponse:
        if self._feed.viewers >= _MOST_VIEWERS:
            return web.Response(status=503, text="too many screens\n")
        response = web.StreamResponse(headers={"Content-Type": "text/event-stream"})
        await response.prepare(request)
        start = {"now": time.time(), "token": self._guard.token,
                 "read_only": self._guard.read_only, "page": self._page}
        try:
            async for data in self._feed.follow(start):
                async with asyncio.timeout(_TAKE_SECONDS):
                    await response.write(data)
        except ConnectionError:
            pass
        except TimeoutError:
            if request.transport is not None:
                request.transport.abort()
        return response

    # Jobs

    async def _job(self, request: web.Request) -> web.Response:
        station, job_id = _names(request.query)
        job = self._board.job(station, job_id)
        if job is None:
            raise web.HTTPNotFound(text="there is no such job\n")
        papers = await self._source.papers(station, job_id)
        return web.json_response({
            "job": self._board.job_value(station, job), "now": time.time(),
            "steps": [dataclasses.asdict(step) for step in papers.steps],
            "documents": list(papers.documents), "left_out": papers.left_out,
            "has_file": papers.file is not None, "note": papers.note})

    async def _documents(self, request: web.Request) -> web.StreamResponse:
        station, job_id = _names(request.query)
        papers = await self._source.papers(station, job_id)
        if papers.file is None or not papers.file.is_file():
            raise web.HTTPNotFound(text="there are no documents here\n")
        return web.FileResponse(papers.file, headers={
            "Content-Type": "application/octet-stream",
            "Content-Disposition": f'attachment; filename="{job_id}.plist"'})

    # Orders

    async def _restore(self, request: web.Request) -> web.Response:
        values = await _values(request, station=str, id=str, device=str, bundle=str, erase=bool,
                               confirmation=str)
        try:
            order = RestoreRequest(check_job_id(values["id"]), clean_ecid(values["device"]),
                                   values["bundle"], values["erase"])
        except ValueError as fault:
            raise web.HTTPBadRequest(text=f"{fault}\n") from fault
        job = self._board.job(values["station"], order.id)
        if job is not None:  # the order comes again
            return _answer(_answer_again(job, order))
        reason = self._objection(self._board.station(values["station"]), order,
                                 values["confirmation"])
        if reason:
            return _answer(Answer(False, reason))
        answer = await self._source.order(values["station"], order, _asker(request))
        if answer.accepted:
            await self._until_known(values["station"], order.id)
        return _answer(answer)

    async def _until_known(self, station: str, job_id: str) -> None:
        """Waits until the job can be shown, but not for long."""
        limit = time.monotonic() + _KNOWN_SECONDS
        while self._board.job(station, job_id) is None and time.monotonic() < limit:
            await asyncio.sleep(_PUBLISH_SECONDS)

    def _objection(self, station: Station | None, order: RestoreRequest,
                   confirmation: str) -> str:
        """Returns why the order cannot be passed on; empty if it can."""
        if station is None or not station.online:
            return "the station is offline"
        if order.bundle not in station.bundles:
            return "the station has no such bundle"
        if order.erase and not station.may_erase:
            return "the station does not allow to erase"
        if order.erase and confirmation != _CONFIRMATION:
            return "erasing was not confirmed"
        if self._board.device(station.name, order.device) is None:
            return "the device is not attached"
        return ""

    async def _cancel(self, request: web.Request) -> web.Response:
        values = await _values(request, station=str, id=str)
        if self._board.job(values["station"], values["id"]) is None:
            raise web.HTTPNotFound(text="there is no such job\n")
        return _answer(await self._source.cancel(values["station"], values["id"],
                                                 _asker(request)))


def _digest_of_page() -> str:
    """Returns a text that is another one when a file of the page is."""
    files = sorted(path for path in _PAGE.iterdir() if path.suffix in _TYPES)
    return hashlib.sha256(b"".join(path.read_bytes() for path in files)).hexdigest()


def _answer_again(job: Job, order: RestoreRequest) -> Answer:
    """Returns what was said to an order that became this job."""
    if job.device != order.device:
        return Answer(False, "another job has this id")
    is_refused = job.state is JobState.REFUSED
    return Answer(not is_refused, job.reason if is_refused else "")


def _answer(answer: Answer) -> web.Response:
    return web.json_response(dataclasses.asdict(answer), status=200 if answer.accepted else 409)


def _asker(request: web.Request) -> str:
    return f"the screen ({request.remote})"


def _names(values: Mapping[str, str]) -> tuple[str, str]:
    """Returns the station and the job of a query."""
    try:
        return values["station"], check_job_id(values["id"])
    except (KeyError, ValueError) as fault:
        raise web.HTTPBadRequest(text="a station and a job are needed\n") from fault


async def _values(request: web.Request, **types: type) -> dict[str, Any]:
    """Returns what was posted: an object with exactly these members."""
    if request.content_type != "application/json":
        raise web.HTTPUnsupportedMediaType(text="JSON is needed\n")
    try:
        values = json.loads(await request.text())
    except (ValueError, RecursionError) as fault:
        raise web.HTTPBadRequest(text="this is no JSON\n") from fault
    if not isinstance(values, dict) or set(values) != set(types) \
            or any(type(values[name]) is not kind for name, kind in types.items()):
        raise web.HTTPBadRequest(text=f"needed: {', '.join(types)}\n")
    return values


async def _file(request: web.Request) -> web.StreamResponse:
    name = request.match_info["name"] or "index.html"
    path = _PAGE / name
    if not re.fullmatch(r"[a-z]+\.(html|css|js|svg)", name) or not path.is_file():
        raise web.HTTPNotFound(text="there is no such page\n")
    return web.Response(body=path.read_bytes(), content_type=_TYPES[path.suffix],
                        charset="utf-8")


async def _add_headers(request: web.Request, response: web.StreamResponse) -> None:
    response.headers.update(HEADERS)
