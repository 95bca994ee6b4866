"""The command serve: connects the bench to its fleet, until it is stopped."""

from __future__ import annotations

import argparse
import logging
import pathlib
import signal
from concurrent.futures import ThreadPoolExecutor
from typing import TYPE_CHECKING, Any

from qnrescue.bench.context import CommandFailure, Context
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.findings import findings
from qnrescue.bench.polling import Poll, Poller
from qnrescue.bench.slot_names import DETECT_SECONDS
from qnrescue.database import JournalError
from qnrescue.desk import Desk
from qnrescue.file_lock import FileLock
from qnrescue.fleet.bridge import Bridge
from qnrescue.fleet.clerk import Clerk
from qnrescue.fleet.retries import Retries
from qnrescue.fleet.settings import FILE_NAME, Settings, SettingsFault, read_settings
from qnrescue.fleet.topics import Topics
from qnrescue.tool import Tool

if TYPE_CHECKING:
    from qnrescue.fleet.connection import Connection

log = logging.getLogger("qnrescue.fleet")

# How often to look at the journal, in seconds.
_TICK = 0.1
# How long to wait between looks at the devices, in seconds.
_LOOK_SECONDS = 2.0
# How long the tool may take for a command that is not a restore, in seconds.
_TOOL_SECONDS = 120.0
# How many bundles are read and tools run at the same time, for orders.
_AT_ONCE = 4


def add_commands(actions: argparse._SubParsersAction[Any], common: argparse.ArgumentParser) -> None:
    """Adds the command to the command line."""
    serve = actions.add_parser(
        "serve", parents=[common], help="connect the bench to its fleet",
        description="Takes orders from an MQTT broker and publishes what becomes of them, until it"
                    " is stopped. Restores do not depend on it, nor on the broker.")
    serve.add_argument("--broker", metavar="ADDRESS",
                       help="as mqtts://broker.example:8883; default: that of the settings")
    serve.add_argument("--settings", metavar="FILE", type=pathlib.Path,
                       help=f"default: {FILE_NAME} in the folder of the bench")
    serve.set_defaults(act=serve_fleet)


def serve_fleet(context: Context) -> int:
    """Connects the bench to its fleet."""
    logging.basicConfig(level=logging.INFO, format="%(asctime)s %(message)s")
    try:
        # Only what uses the fleet needs this.
        from qnrescue.fleet.connection import Connection, Disconnected  # noqa: F401
    except ModuleNotFoundError as fault:
        raise CommandFailure(ExitStatus.BENCH, f"{fault}; install qnrescue[fleet]") from fault
    path = context.options.settings or context.folder.path / FILE_NAME
    try:
        settings = read_settings(path, context.options.broker)
    except SettingsFault as fault:
        raise CommandFailure(ExitStatus.BENCH, str(fault)) from fault
    lock = FileLock(context.folder.path / "fleet.lock")
    if not lock.try_acquire():
        raise CommandFailure(ExitStatus.BENCH, "another program connects this bench to a fleet")
    with lock, context.desk() as desk, ThreadPoolExecutor(_AT_ONCE) as pool:
        service = _Service(context, desk, settings, pool)
        for each in (signal.SIGINT, signal.SIGTERM):
            signal.signal(each, lambda *_: service.stop())
        service.run()
    return ExitStatus.DONE


class _Service:
    """The bridge, with its connection and what it asks the tool."""

    def __init__(self, context: Context, desk: Desk, settings: Settings,
                 pool: ThreadPoolExecutor) -> None:
        tool = Tool(context.tool_words, silence_timeout=_TOOL_SECONDS)
        self._settings = settings
        self._poller = Poller(Tool(context.tool_words, DETECT_SECONDS, _TOOL_SECONDS),
                              _LOOK_SECONDS)
        self._bridge = Bridge(desk, settings, Clerk(desk, settings, tool, context.tool_words, pool),
                              context.slots, lambda: list(findings(context)), pool)
        self._connection: Connection | None = None
        self._poll: Poll | None = None  # that was not taken over yet
        self._retries = Retries()
        self._said = ""
        self._is_stopped = False

    def stop(self) -> None:
        """Lets `run` return soon."""
        self._is_stopped = True

    def run(self) -> None:
        """Serves until it is stopped."""
        from qnrescue.fleet.connection import Disconnected
        while not self._is_stopped:
            try:
                self._step()
            except (Disconnected, JournalError, OSError) as fault:
                self._leave(str(fault))
        self._poller.stop()
        if self._connection is not None:
            self._connection.close(Topics(self._settings.station).availability)

    def _step(self) -> None:
        if self._connection is None and self._retries.is_due:
            self._connect()
        if self._connection is not None:
            self._connection.step(_TICK)
        self._poll = self._poll or self._poller.next(0.0 if self._connection else _TICK)
        self._bridge.step(self._poll)
        self._poll = None

    def _connect(self) -> None:
        from qnrescue.fleet.connection import Connection
        self._connection = Connection(self._settings, self._bridge.receive)
        self._bridge.enter(self._connection)
        self._retries.note_success()
        self._said = ""
        log.info("connected to %s as %s", self._settings.broker.host, self._settings.station)

    def _leave(self, reason: str) -> None:
        if self._connection is not None:
            self._connection.drop()
            self._connection = None
        self._bridge.leave()
        if reason != self._said:  # once, not at each try
            self._said = reason
            log.warning("not connected: %s", reason)
        self._retries.note_failure()
