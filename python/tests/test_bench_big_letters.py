"""The large letters of the wall."""

import string

import pytest

from qnrescue.bench.big_letters import HEIGHT, can_draw, draw, width


def pixels(letter):
    """The drawing of a letter, as six rows of # and dots."""
    rows = []
    for line in draw(letter):
        rows.append("".join("#" if each in "▀█" else "." for each in line))
        rows.append("".join("#" if each in "▄█" else "." for each in line))
    return rows


@pytest.mark.parametrize("letter, rows", [
    ("a", [".#.", "#.#", "###", "#.#", "#.#", "..."]),
    ("m", ["#...#", "##.##", "#.#.#", "#...#", "#...#", "....."]),
    ("n", ["#..#", "##.#", "#.##", "#..#", "#..#", "...."]),
    ("%", ["#.#", "..#", ".#.", "#..", "#.#", "..."]),
])
def test_letters(letter, rows):
    assert pixels(letter) == rows


def test_letters_differ():
    letters = string.ascii_uppercase + string.digits + "%-.:/+_? "
    drawings = {"".join(draw(letter)) for letter in letters}
    # O and 0 look alike: among letters and among digits they cannot be mistaken.
    assert len(drawings) == len(letters) - 1


def test_words():
    lines = draw("hung 1")
    assert len(lines) == HEIGHT
    assert {len(line) for line in lines} == {width("hung 1")} == {3 + 3 + 4 + 3 + 3 + 3 + 5}
    assert draw("HUNG 1") == lines
    assert draw("") == [""] * HEIGHT


def test_letters_without_a_drawing():
    assert can_draw("left-1") and not can_draw("右1")
    assert draw("右") == draw("?")
