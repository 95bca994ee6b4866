"""The commands restore and cancel: they order, and the supervisor acts."""

from __future__ import annotations

import argparse
import sys
from typing import Any

from qnrescue.bench.arguments import ecid, existing_path, silence, whole_seconds
from qnrescue.bench.context import CommandFailure, Context
from qnrescue.bench.devices import ask_all, slot_of
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.following import find_job, follow
from qnrescue.bench.values import job_value
from qnrescue.events import DeviceInfo
from qnrescue.jobs import SILENCE_TIMEOUT, JobOrder, JobState

# How long to wait for the end of a job that is cancelled, in seconds.
_CANCEL_SECONDS = 20.0
# What has to be typed.
_CONFIRMATION = "erase"


def add_commands(actions: argparse._SubParsersAction[Any], common: argparse.ArgumentParser,
                 looking: argparse.ArgumentParser, restoring: argparse.ArgumentParser) -> None:
    """Adds the commands to the command line."""
    restore = actions.add_parser(
        "restore", parents=[common, looking, restoring], help="restore devices",
        description="Orders the restore of devices and shows it. The restores go on when this"
                    " command is stopped, whatever stops it.")
    restore.add_argument("bundle", metavar="BUNDLE", type=existing_path,
                         help="the firmware bundle")
    restore.add_argument("ecids", nargs="*", metavar="ECID", type=ecid, help="the devices")
    restore.add_argument("--all", action="store_true", help="all devices that are attached")
    restore.add_argument("--detach", action="store_true", help="do not show the restores")
    restore.set_defaults(act=restore_devices, check=_check_restore)
    cancel = actions.add_parser("cancel", parents=[common], help="end a job")
    cancel.add_argument("job", metavar="JOB", help="an id, or the beginning of one")
    cancel.set_defaults(act=cancel_job)


def restore_options() -> argparse.ArgumentParser:
    """Returns the options of all restores."""
    options = argparse.ArgumentParser(add_help=False)
    options.add_argument("--plist", action="store_true",
                         help="BUNDLE is a property-list file with the options of a restore")
    options.add_argument("--erase", action="store_true", help="erase the devices")
    options.add_argument("--yes", action="store_true", help="erase without asking")
    options.add_argument("--enter-restore-mode", action="store_true",
                         help="stop when a device is in restore mode")
    options.add_argument("--restore-timeout", type=whole_seconds, metavar="SECONDS",
                         help="how long a restore may take; default: 7200")
    options.add_argument("--silence-timeout", type=silence, default=SILENCE_TIMEOUT,
                         metavar="SECONDS",
                         help="how long a device may report nothing before it counts as hung;"
                              " default: %(default)g")
    return options


def check_options(options: argparse.Namespace) -> str:
    """Returns what is wrong with the options of a restore, for people; empty if nothing is."""
    if options.plist and (options.erase or options.restore_timeout is not None):
        return "with --plist, the file says whether to erase, and --restore-timeout has no effect"
    return ""


def _check_restore(options: argparse.Namespace) -> str:
    if options.all and options.ecids:
        return "either name devices, or give --all"
    if not options.all and not options.ecids:
        return "name the devices, or give --all"
    return check_options(options)


def restore_devices(context: Context) -> int:
    """Orders restores and shows them."""
    options = context.options
    tool = context.tool(options.detect_timeout)
    with context.starting():
        ecids = list(dict.fromkeys(options.ecids)) or tool.list_devices()
        if not ecids:
            raise CommandFailure(ExitStatus.NOTHING, "no device is attached; connect one in DFU or"
                                                     " Recovery mode, or raise --detect-timeout")
        if options.all:
            confirm(context, f"all that are attached: {' '.join(ecids)}")
        infos = ask_all(tool, ecids) if context.slots.names else {}
    with context.desk() as desk:
        jobs = [desk.order(order_for(context, each, slot_of(infos.get(each), context.slots)))
                for each in ecids]
        if options.detach:
            context.output.table(["job", "ECID", "state", "reason"],
                                 [[job.id, job.device, job.state.value, job.reason]
                                  for job in jobs],
                                 [job_value(job, context.folder) for job in jobs])
            refused = any(job.state is JobState.REFUSED for job in jobs)
            return ExitStatus.FAILED if refused else ExitStatus.DONE
        return follow(context, desk, jobs, {
            each: info.serial_number or "" for each, info in infos.items()
            if isinstance(info, DeviceInfo)})


def order_for(context: Context, device: str, slot: str, repeats: str = "") -> JobOrder:
    """Returns the order of a restore as the options say."""
    options = context.options
    what = {"plist" if options.plist else "bundle": options.bundle}
    return JobOrder(device, **what, erase=options.erase,
                    enter_restore_mode=options.enter_restore_mode,
                    restore_timeout=options.restore_timeout,
                    detect_timeout=options.detect_timeout,
                    silence_timeout=options.silence_timeout, tool=context.tool_words, slot=slot,
                    repeats=repeats)


def confirm(context: Context, devices: str) -> None:
    """Asks on the terminal whether to erase these devices, if the options erase them or may do so,
    unless that is settled. Raises CommandFailure without a confirmation."""
    options = context.options
    if options.yes or not (options.erase or options.plist):
        return
    question = f"This {'erases' if options.erase else 'may erase'} {devices}."
    if sys.stdin is None or not sys.stdin.isatty():
        raise CommandFailure(ExitStatus.UNCONFIRMED,
                             f"{question} Give --yes, or confirm on a terminal")
    context.note(f"{question} Type {_CONFIRMATION} to go on:")
    if sys.stdin.readline().strip() != _CONFIRMATION:
        raise CommandFailure(ExitStatus.UNCONFIRMED, "nothing is erased")


def cancel_job(context: Context) -> int:
    """Orders the end of a job and waits for it."""
    with context.desk() as desk:
        job = find_job(desk, context.options.job)
        if not job.state.is_end:
            desk.cancel(job.id)
            job = desk.wait(job.id, _CANCEL_SECONDS)
        context.output.table(["job", "ECID", "state", "reason"],
                             [[job.id, job.device, job.state.value, job.reason]],
                             [job_value(job, context.folder)])
    return ExitStatus.DONE if job.state is JobState.CANCELLED else ExitStatus.FAILED
