"""What the bench shows, on walls and in lines."""

import io

import pytest
from hypothesis import given
from hypothesis import strategies as st
from rich.cells import cell_len
from rich.console import Console

from qnrescue.bench.display import (Look, Row, clean, duration, framed_table, line_of, row_of,
                                    table_lines, wall)
from qnrescue.bench.big_letters import draw
from qnrescue.jobs import Job, JobOrder, JobState

ECID = "00022D4C0A91C026"


def shown(rows, width=130, height=40, message=""):
    console = Console(file=io.StringIO(), width=width, height=height, color_system=None)
    console.print(wall(rows, "the head", message, width, height))
    return console.file.getvalue().splitlines()


def job(state, **more):
    order = JobOrder(ECID, "/bundles/update.ipsw", slot="3")
    return Job("id", order, state, "somebody", 1, 0.0, **more)


def test_every_state_has_a_word_and_a_colour():
    for state in JobState:
        row = row_of(job(state))
        assert row.look.word == state.value
        assert row.look.style
    assert len({look.word for look in Look}) == len(Look)


def test_row_of_a_job():
    running = job(JobState.RUNNING, started_at=1.0, seconds=65.0, step="Restoring image",
                  progress=48)
    assert row_of(running, serial="F4G") == Row("3", Look.RUNNING, ECID, "F4G", "Restoring image",
                                                48, 65.0)
    assert row_of(running, slot="left").slot == "left"
    failed = job(JobState.FAILED, started_at=1.0, step="Restoring image", reason="unplugged")
    assert row_of(failed).text == "unplugged"
    assert row_of(job(JobState.QUEUED)) == Row("3", Look.QUEUED, ECID)


def test_large_rows():
    lines = shown([Row("1", Look.RUNNING, ECID, "F4G", "Restoring image", 48, 125),
                   Row("right 2", Look.HUNG, ECID, "", "no report for 600 s", 18, 3725),
                   Row("右1")], message="a message")
    assert lines[0].rstrip() == "the head"
    assert lines[-1].rstrip() == "a message"
    for at, (word, slot) in enumerate((("running 48%", "1"), ("hung", "right 2"),
                                       ("empty", ""))):
        for line, state, name in zip(lines[2 + 4 * at :], draw(word), draw(slot)):
            assert line.startswith(name)
            assert state in line
    assert lines[2].endswith(f"{ECID}  F4G".ljust(len(lines[2]) - lines[2].index(ECID)))
    assert "Restoring image" in lines[3]
    assert "48 % 2:05" in lines[4]
    assert "18 % 1:02:05" in lines[8]
    assert "右1" in lines[11]


@pytest.mark.parametrize("height, lines_of_a_row", [(3 + 16 * 4, 4), (2 + 16 * 4, 3),
                                                    (3 + 16 * 3, 3), (2 + 16 * 3, 1)])
def test_rows_are_as_high_as_the_terminal_allows(height, lines_of_a_row):
    lines = shown([Row(str(number), Look.QUEUED, f"{number:016X}") for number in range(16)],
                  height=height)
    found = [at for at, line in enumerate(lines) if "00000000" in line]
    assert len(found) == 16
    assert found[1] - found[0] == lines_of_a_row
    assert len(lines) <= height


def test_small_rows():
    lines = shown([Row("1", Look.RUNNING, ECID, "F4G", "Restoring image", 48, 125), Row("2")],
                  height=5)
    assert lines[2].split() == ["1", "RUNNING", ECID, "F4G", "━" * 7, "48", "%",
                                "2:05", "Restoring", "image"]
    assert lines[3].split() == ["2", "EMPTY"]


def test_more_slots_than_lines():
    lines = shown([Row(str(number)) for number in range(40)], height=13, message="and more")
    assert len(lines) == 13
    assert lines[-1].rstrip() == "… and 30 more and more"


TEXTS = st.text(max_size=30)
ROWS = st.builds(Row, TEXTS, st.sampled_from(Look), TEXTS, TEXTS, TEXTS,
                 st.none() | st.integers(0, 100), st.none() | st.floats(0, 1e6))


@given(st.lists(ROWS, max_size=12), st.integers(60, 200), st.integers(4, 60), TEXTS)
def test_wall_never_leaves_the_screen(rows, width, height, message):
    console = Console(file=io.StringIO(), width=width, height=height, force_terminal=True,
                      color_system="truecolor")
    with console.capture():
        lines = console.render_lines(wall(rows, message, message, width, height))
    assert len(lines) <= height
    for line in lines:
        text = "".join(segment.text for segment in line)
        assert cell_len(text) == width
        assert clean(text) == text


def test_colours_come_with_words():
    console = Console(file=io.StringIO(), width=100, force_terminal=True, color_system="standard")
    console.print(wall([Row("1", Look.FAILED, ECID)], "", "", 100, 4))
    assert "\x1b[1;97;41m FAILED      \x1b[0m" in console.file.getvalue()


def test_lines():
    assert line_of(Row("1", Look.RUNNING, ECID, "", "Restoring image", 5, 1)) == (
        f"1: {ECID}   5 % Restoring image")
    assert line_of(Row("", Look.FAILED, ECID, "", "x\x1b[31m\ny")) == (
        f"{ECID}       failed: x [31m y")
    assert line_of(Row("1", Look.SUCCEEDED, ECID, "", "Successful")) == f"1: {ECID}       succeeded"


def test_duration():
    assert [duration(each) for each in (-5, 0, 59.9, 60, 3599, 3600, 360000)] == [
        "0:00", "0:00", "0:59", "1:00", "59:59", "1:00:00", "100:00:00"]


def test_tables():
    assert table_lines(["ECID", "state"], [[ECID, "hung"], ["B\x07", ""]]) == [
        "ECID              state", f"{ECID}  hung", "B"]
    console = Console(file=io.StringIO(), width=60, force_terminal=True, color_system="standard")
    console.print(framed_table(["ECID", "state"], [["[red]", "hung"]]))
    assert "[red]" in console.file.getvalue()
    assert "\x1b[97;45mhung \x1b[0m" in console.file.getvalue()
