"""The command line of qnrescue-bench."""

from __future__ import annotations

import argparse
import logging
import sys
import warnings
from collections.abc import Sequence

from qnrescue.bench import devices, findings, following, json_lines, ordering, slot_names, watching
from qnrescue.bench.arguments import whole_seconds
from qnrescue.bench.context import TOOL_VARIABLE, CommandFailure, Context
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.output import Output, OutputBroken, show_all_letters
from qnrescue.bench.slots import SlotsFault
from qnrescue.database import JournalError
from qnrescue.fleet import serving
from qnrescue.places import FOLDER_VARIABLE
from qnrescue.screen import command as screen
from qnrescue.supervisor import supervise
from qnrescue.tool import ToolFailure


def make_parser() -> argparse.ArgumentParser:
    """Returns the command line."""
    common = _common_options()
    looking = argparse.ArgumentParser(add_help=False)
    looking.add_argument("--detect-timeout", type=whole_seconds, metavar="SECONDS",
                         help="how long to look for devices; default: 3, of watch and slots: 1")
    restoring = ordering.restore_options()
    parser = argparse.ArgumentParser(
        prog="qnrescue-bench", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Lists, restores and watches the devices of a bench. A restore is a job: it"
                    " goes on\nwithout this program, and any terminal can follow or cancel it.",
        epilog="exit statuses:\n" + "\n".join(f"  {each.value:3}  {each.meaning}"
                                              for each in ExitStatus))
    actions = parser.add_subparsers(dest="action", required=True, metavar="COMMAND")
    devices.add_commands(actions, common, looking)
    ordering.add_commands(actions, common, looking, restoring)
    watching.add_commands(actions, common, looking, restoring)
    following.add_commands(actions, common)
    slot_names.add_commands(actions, common, looking)
    screen.add_commands(actions, common, looking)
    json_lines.add_commands(actions, common)
    findings.add_commands(actions, common)
    serving.add_commands(actions, common)
    service = actions.add_parser(
        "supervise", parents=[common], help="be the supervisor, in the foreground",
        description="Supervises the jobs until it is stopped, as a service does. Without it, the"
                    " commands that need a supervisor start one in the background.")
    service.set_defaults(act=_supervise)
    return parser


def _common_options() -> argparse.ArgumentParser:
    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("--tool", action="append", metavar="WORD",
                        help="the program that starts the tool; given again, its first arguments;"
                             f" default: {TOOL_VARIABLE} (a word a line), or qnrescue")
    common.add_argument("--folder", metavar="FOLDER",
                        help=f"the folder of the bench; default: {FOLDER_VARIABLE}, or that of the"
                             " machine")
    form = common.add_mutually_exclusive_group()
    form.add_argument("--json", action="store_true", help="write JSON Lines")
    form.add_argument("--plain", action="store_true",
                      help="write plain lines, as when the output is not a terminal")
    return common


def _supervise(context: Context) -> int:
    logging.basicConfig(level=logging.INFO, format="%(asctime)s %(message)s")
    try:
        if supervise(context.folder, None):
            return ExitStatus.DONE
    except JournalError as fault:
        raise CommandFailure(ExitStatus.BENCH, f"the journal cannot be used: {fault}") from fault
    raise CommandFailure(ExitStatus.BENCH, "another process supervises the jobs")


def main(words: Sequence[str] | None = None) -> int:
    """Runs a command and returns its exit status."""
    parser = make_parser()
    options = parser.parse_args(words)
    fault = options.check(options) if "check" in options else ""
    if fault:
        parser.error(fault)
    show_all_letters(sys.stdout, sys.stderr)
    context = Context(options, Output(as_json=options.json, plain=options.plain))
    warnings.showwarning = lambda message, *_, **__: context.note(str(message))
    return run(context)


def run(context: Context) -> int:
    """Carries out the command of the options and returns the exit status. Whatever happens is said
    once, on standard error."""
    try:
        status: int = context.options.act(context)
        return status
    except KeyboardInterrupt:
        return ExitStatus.STOPPED
    except OutputBroken as fault:
        context.output.give_up()
        context.note(f"the output cannot be written: {fault}; jobs go on, see qnrescue-bench"
                     " follow")
        return ExitStatus.OUTPUT
    except CommandFailure as fault:
        context.note(str(fault))
        return fault.status
    except SlotsFault as fault:
        context.note(str(fault))
        return ExitStatus.BENCH
    except ToolFailure as fault:
        context.note(str(fault))
        return ExitStatus.FAILED
    except OSError as fault:  # a file of the bench, or a process that cannot be started
        context.note(str(fault))
        return ExitStatus.BENCH


if __name__ == "__main__":
    sys.exit(main())
