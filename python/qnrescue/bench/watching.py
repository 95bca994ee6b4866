"""The command watch: restores devices as they arrive, and shows the bench."""

from __future__ import annotations

import argparse
import dataclasses
import json
import pathlib
import time
from collections.abc import Iterable
from typing import Any

from qnrescue.bench.arguments import count, existing_path, seconds
from qnrescue.bench.context import CommandFailure, Context
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.hooks import ARRIVAL, DEPARTURE, END, Hooks
from qnrescue.bench.ordering import check_options, confirm, order_for
from qnrescue.bench.output import Screen
from qnrescue.bench.picture import picture
from qnrescue.bench.polling import Poll, Poller
from qnrescue.bench.slot_names import DETECT_SECONDS
from qnrescue.bench.values import job_value
from qnrescue.bench.visits import (Action, Arrived, Bench, Departed, Ended, Order, Rules, Visits,
                                   load)
from qnrescue.bench.wall import Wall
from qnrescue.bench.whole_file import replace_file
from qnrescue.database import JournalError
from qnrescue.desk import Desk
from qnrescue.documents_file import DocumentsFile
from qnrescue.events import DeviceInfo, RestoreStatus, UnreadableDocument
from qnrescue.file_lock import FileLock
from qnrescue.jobs import Job, JobState
from qnrescue.outcome import RESTORE_MODE_OPERATION
from qnrescue.places import JobFolder
from qnrescue.supervisor import ensure_supervisor

# Where the journal has the visits.
_FACT = "visits"
# How often to look at the journal, in seconds.
_TICK = 0.2
# How long a message stays on the screen, in seconds.
_MESSAGE_SECONDS = 60.0
# How often a picture is written, at most, in seconds.
_PICTURE_SECONDS = 1.0
# How long commands on events may run on at the end, in seconds.
_LAST_HOOKS_SECONDS = 5.0
# The size of a picture, in columns and the least number of lines.
_PICTURE_WIDTH, _PICTURE_HEIGHT = 120, 24


def add_commands(actions: argparse._SubParsersAction[Any], common: argparse.ArgumentParser,
                 looking: argparse.ArgumentParser, restoring: argparse.ArgumentParser) -> None:
    """Adds the command to the command line."""
    watch = actions.add_parser(
        "watch", parents=[common, looking, restoring],
        help="show the bench, and restore devices as they arrive",
        description="Shows the slots and what becomes of the devices in them. With --restore, each"
                    " device that arrives is restored: once until it has been unplugged, and not"
                    " if it has just been restored. Control-C ends the command, and no restore.")
    rules = Rules()
    watch.add_argument("--restore", dest="bundle", metavar="BUNDLE", type=existing_path,
                       help="restore each device that arrives")
    watch.add_argument("--at-once", type=count, default=rules.at_once, metavar="N",
                       help="how many restores may be under way; default: any number")
    watch.add_argument("--retry", type=count, default=rules.retries, metavar="N",
                       help="how often to repeat a restore that failed before it changed the"
                            " device; default: %(default)s")
    watch.add_argument("--away", type=seconds, default=rules.away, metavar="SECONDS",
                       help="how long a device is away before it counts as unplugged; default:"
                            " %(default)g")
    watch.add_argument("--rest", type=seconds, default=rules.rest, metavar="SECONDS",
                       help="how long after a success a device that arrives is not restored;"
                            " default: %(default)g")
    for event, when in ((ARRIVAL, "a device arrives"), (DEPARTURE, "a device has gone"),
                        (END, "a job has ended")):
        watch.add_argument(f"--on-{event}", metavar="COMMAND", help=f"run this when {when}")
    watch.add_argument("--bell", action="store_true", help="ring the bell when a job has ended")
    watch.add_argument("--svg", type=pathlib.Path, metavar="FILE",
                       help="keep a picture of the screen in this file")
    watch.set_defaults(act=watch_bench, check=_check)


def _check(options: argparse.Namespace) -> str:
    if options.bundle is None and (options.erase or options.plist or options.at_once
                                   or options.retry):
        return "--erase, --plist, --at-once and --retry need --restore"
    return check_options(options)


def watch_bench(context: Context) -> int:
    """Shows the bench until Control-C."""
    options = context.options
    if options.bundle is not None:
        confirm(context, "each device that is attached, and each that arrives")
    lock = FileLock(context.folder.path / "watch.lock")
    if options.bundle is not None and not lock.try_acquire():
        raise CommandFailure(ExitStatus.BENCH, "another program restores the devices that arrive")
    poller = Poller(context.tool(options.detect_timeout or DETECT_SECONDS))
    with lock, context.desk() as desk, context.output.screen(full=True) as screen:
        watch = _Watch(context, desk, screen)
        try:
            while True:
                watch.step(poller.next(_TICK))
        finally:
            poller.stop()
            watch.close()


def may_retry(job: Job, files: JobFolder) -> bool:
    """Returns whether the job ended before it changed the device. Either its tool never began: then
    there is no log. Or it failed, its documents are all there to read, and none of them reports the
    step after which the device is another."""
    if job.state is JobState.INTERRUPTED:
        return not files.log.exists()
    if job.state is not JobState.FAILED or not files.documents.exists():
        return False
    try:
        events = list(DocumentsFile(files.documents).read())
    except OSError:
        return False
    return not any(isinstance(event, UnreadableDocument)
                   or (isinstance(event, RestoreStatus)
                       and event.operation == RESTORE_MODE_OPERATION) for event in events)


class _Watch:
    """The state of the command."""

    def __init__(self, context: Context, desk: Desk, screen: Screen) -> None:
        options = context.options
        self._context = context
        self._desk = desk
        self._screen = screen
        self._restores = options.bundle is not None
        self._has_looked = False
        self._stored = ""
        stored = self._load() if self._restores else {"visits": [], "devices": []}
        self._wall = Wall(context.slots, self._restores)
        self._visits = Visits(Rules(self._restores, options.at_once, options.retry, options.away,
                                    options.rest), load(stored["visits"]))
        for value in stored["devices"]:
            self._wall.note_device(DeviceInfo(**value))
        for visit in self._visits.current.values():
            self._wall.note_arrival(visit.ecid)
        self._actions: list[Action] = []  # that are still to be carried out
        self._revision = 0
        self._journal_file = desk.journal.path
        self._hooks = Hooks({event: getattr(options, f"on_{event}") or ""
                             for event in (ARRIVAL, DEPARTURE, END)},
                            context.folder.path / "hooks.log")
        self._message, self._said_at = "", 0.0
        self._pictured = ("", 0.0)
        self._read_journal(silently=True)

    def _load(self) -> dict[str, Any]:
        text = self._desk.journal.fact(_FACT) or '{"visits": [], "devices": []}'
        stored: dict[str, Any] = json.loads(text)
        return stored

    def close(self) -> None:
        """Gives the last commands some time."""
        for fault in self._hooks.wait(_LAST_HOOKS_SECONDS):
            self._context.note(fault)

    def step(self, poll: Poll | None) -> None:
        """Acts on what a look at the devices has found, and on what is new in the journal."""
        if poll is not None and poll.cannot_start and not self._has_looked:
            raise CommandFailure(ExitStatus.BENCH,
                                 f"{poll.fault}: {self._context.tool_words[0]!r}")
        for fault in self._hooks.look():
            self._say(fault)
        try:
            self._read_journal()
            if poll is not None:
                self._act(poll)
        except JournalError as fault:  # what is to be done waits for the next step
            self._say(f"the journal cannot be used now: {fault}")
        except OSError as fault:
            self._say(str(fault))
        self._draw()

    def _act(self, poll: Poll) -> None:
        self._has_looked = True
        self._say(poll.fault)
        for info in poll.infos.values():
            self._wall.note_device(info)
        self._actions += self._visits.step(time.monotonic(), self._bench(poll))
        self._store()
        while self._actions:
            self._carry_out(self._actions[0])
            del self._actions[0]

    def _bench(self, poll: Poll) -> Bench:
        journal = self._desk.journal
        active = {job.device: job.id for job in journal.jobs(JobState.QUEUED, JobState.RUNNING)}
        if active:
            ensure_supervisor(self._context.folder)
        known = [journal.find(visit.job) for visit in self._visits.current.values() if visit.job]
        ended = {job.id: Ended(may_retry(job, self._desk.files(job.id)))
                 for job in known if job is not None and job.state.is_end}
        return Bench(poll.attached, active, ended,
                     self._since_success([*(poll.attached or ()), *self._visits.current]))

    def _since_success(self, devices: Iterable[str]) -> dict[str, float]:
        found: dict[str, float] = {}
        for device in set(devices):
            for job in self._desk.journal.jobs(JobState.SUCCEEDED, device=device, limit=1):
                found[device] = time.time() - (job.ended_at or 0.0)
        return found

    def _store(self) -> None:
        """Writes down the visits, before anything is ordered."""
        devices = [dataclasses.asdict(info) for info in self._wall.devices.values()
                   if info.ecid in self._visits.current]
        text = json.dumps({"visits": self._visits.dump(), "devices": devices})
        if self._restores and text != self._stored:
            self._desk.journal.set_fact(_FACT, text)
            self._stored = text

    def _carry_out(self, action: Action) -> None:
        if isinstance(action, Order):
            slot = self._wall.slot_of(action.ecid)
            self._desk.order(order_for(self._context, action.ecid, slot, action.repeats),
                             job_id=action.id)
        elif isinstance(action, Arrived):
            device = action.visit.ecid
            for job in self._desk.journal.jobs(device=device, limit=1):
                self._wall.note_job(job)
            self._wall.note_arrival(device)
            self._tell(ARRIVAL, device, action.visit.note)
        elif isinstance(action, Departed):
            self._wall.note_departure(action.visit.ecid)
            self._tell(DEPARTURE, action.visit.ecid, "")

    def _tell(self, event: str, device: str, note: str) -> None:
        facts = self._wall.facts(device)
        output = self._context.output
        if output.as_json:
            output.value({"event": event, **facts, "note": note})
        elif not output.on_terminal:
            place = f"{facts['slot']}: " if facts["slot"] else ""
            word = "arrived" if event == ARRIVAL else "gone"
            output.line(f"{place}{device}       {word}{note and ': ' + note}")
        self._say(self._hooks.start(event, facts))

    def _read_journal(self, silently: bool = False) -> None:
        if self._desk.journal.path != self._journal_file:  # the other one was found broken
            self._journal_file, self._revision, self._stored = self._desk.journal.path, 0, ""
        for job in self._desk.journal.changes_since(self._revision):
            self._revision = job.revision
            is_new = self._wall.note_job(job)
            if not silently:
                self._report(job, is_new)

    def _report(self, job: Job, is_new: bool) -> None:
        output = self._context.output
        if output.as_json:
            output.value({"event": "job", **job_value(job, self._context.folder)})
        elif not output.on_terminal and is_new:
            output.line(self._wall.line_of(job))
        if job.state.is_end:
            self._say(self._hooks.start(END, self._end_facts(job)))
            if self._context.options.bell:
                output.bell()

    def _end_facts(self, job: Job) -> dict[str, object]:
        facts, files = self._wall.facts(job.device), self._desk.files(job.id)
        return {**facts, "slot": facts["slot"] or job.order.slot, "job": job.id,
                "result": job.state.value, "reason": job.reason, "step": job.step,
                "seconds": f"{job.seconds:.0f}", "bundle": job.order.bundle or job.order.plist,
                "repeats": job.order.repeats, "documents": files.documents, "log": files.log}

    def _say(self, message: str) -> None:
        if not message:
            return
        is_new = message != self._message
        self._message, self._said_at = message, time.monotonic()
        if not is_new:
            return
        output = self._context.output
        if output.as_json:
            output.value({"event": "message", "text": message})
        elif not output.on_terminal:
            output.line(message)

    def _draw(self) -> None:
        if time.monotonic() - self._said_at >= _MESSAGE_SECONDS:
            self._message = ""
        bundle_name = pathlib.Path(self._context.options.bundle or "").name
        if self._context.output.on_terminal:
            width, height = self._context.output.size
            self._screen.show(self._wall.screen(self._visits.current, bundle_name, self._message,
                                                width, height))
        if self._context.options.svg is not None:
            self._draw_picture(self._context.options.svg, bundle_name)

    def _draw_picture(self, path: pathlib.Path, bundle_name: str) -> None:
        text, at = self._pictured
        if time.monotonic() - at < _PICTURE_SECONDS:
            return
        height = max(_PICTURE_HEIGHT, self._wall.best_height(self._visits.current))
        screen = self._wall.screen(self._visits.current, bundle_name, self._message,
                                   _PICTURE_WIDTH, height)
        new = picture(screen, _PICTURE_WIDTH, height)
        if new != text:
            try:
                replace_file(path, new)
            except OSError as fault:
                self._say(f"the picture cannot be written: {fault.strerror}")
        self._pictured = new, time.monotonic()
