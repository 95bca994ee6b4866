"""docs/bench.md says what qnrescue-bench does."""

import argparse
import pathlib
import re

import pytest

from qnrescue.bench import cli, watching
from qnrescue.bench.context import Context
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.output import Output
from qnrescue.bench.values import job_value
from qnrescue.jobs import Job, JobOrder, JobState
from qnrescue.places import BenchFolder

PAGE = (pathlib.Path(__file__).parents[2] / "docs" / "bench.md").read_text("utf-8")


def rows(heading):
    """The cells of the tables in this section, without headings."""
    section = re.split(r"^## ", PAGE.partition(f"\n## {heading}\n")[2], flags=re.M)[0]
    lines = re.findall(r"^\|(.*)\|$", section, re.M)
    return [[cell.strip() for cell in line.split(" | ")] for line in lines[2:]]


def commands():
    """The parsers of the commands by name."""
    (actions,) = (action for action in cli.make_parser()._actions
                  if isinstance(action, argparse._SubParsersAction))
    return actions.choices


def test_exit_statuses():
    assert rows("Exit statuses") == [[str(each.value), each.meaning] for each in ExitStatus]


def test_states():
    assert [row[0].strip("`") for row in rows("Jobs")] == list(JobState)


def test_commands():
    named = {row[0].strip("`").split()[0] for row in rows("Commands")}
    assert named == set(commands())


@pytest.mark.parametrize("option", sorted(set(re.findall(r"`(?:\w+ )?(--[a-z-]+)", PAGE))))
def test_options(option):
    assert any(option in parser._option_string_actions for parser in commands().values())


def test_defaults_of_watch():
    parser = commands()["watch"]
    for option, value in re.findall(r"`(--\w+)` seconds \(default: (\d+)\)", PAGE):
        assert parser.get_default(option[2:]) == float(value)


def test_keys_of_a_job():
    (text,) = re.findall(r"A job has the keys (.*?)\. The lines", PAGE, re.S)
    job = Job("id", JobOrder("A" * 16, "x"), JobState.QUEUED, "", 1, 0.0)
    assert set(re.findall(r"`(\w+)`", text)) == set(job_value(job, BenchFolder(pathlib.Path("x"))))


def test_variables_of_commands(tmp_path):
    """A bench gives a command on an end these variables, and the other commands fewer."""
    named = {name: row[2] for row in rows("Commands on events")
             for name in re.findall(r"`QNRESCUE_(\w+)`", row[0])}
    options = cli.make_parser().parse_args(["watch", "--folder", str(tmp_path)])
    context = Context(options, Output())
    job = Job("id", JobOrder("A" * 16, "x"), JobState.FAILED, "", 1, 0.0)
    with context.desk() as desk, context.output.screen(full=True) as screen:
        watch = watching._Watch(context, desk, screen)
        facts = {"event", *watch._wall.facts(job.device)}
        assert {name.lower() for name, events in named.items() if events == "all"} == facts
        assert {name.lower() for name in named} == facts | set(watch._end_facts(job))
