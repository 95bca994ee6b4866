"""The slots of a bench: read, learnt and written."""

import tomllib

import pytest
from hypothesis import given
from hypothesis import strategies as st

from qnrescue.bench.slots import (Slots, SlotsFault, format_slots, read_slots, write_slots)

NAMES = st.text(st.characters(blacklist_categories=("C", "Z")), min_size=1, max_size=24)
LOCATIONS = st.integers(1, (1 << 32) - 1)


def test_missing_file_names_nothing(tmp_path):
    slots = read_slots(tmp_path / "slots.toml")
    assert slots == Slots()
    assert slots.name_of(0x14200000) == "14200000"


@given(st.lists(st.tuples(LOCATIONS, NAMES), unique_by=(lambda at: at[0], lambda at: at[1])))
def test_what_is_written_is_read(entries):
    slots = Slots(dict(entries))
    found = tomllib.loads(format_slots(slots)).get("slot", [])
    assert [(each["location"], each["name"]) for each in found] == entries


def test_file_keeps_the_order(tmp_path):
    path = tmp_path / "Größe" / "slots.toml"
    slots = Slots().named(0x14300000, 'left "1"').named(0x14200000, "右\\2")
    write_slots(path, slots)
    assert read_slots(path) == slots
    assert list(read_slots(path).names) == [0x14300000, 0x14200000]
    assert [each.name for each in path.parent.iterdir()] == ["slots.toml"]


def test_port_takes_a_new_name_and_a_name_one_port():
    slots = Slots().named(1, "A").named(1, "B")
    assert slots.name_of(1) == "B"
    with pytest.raises(SlotsFault, match="'B' is at 00000001 already"):
        slots.named(2, "B")
    assert slots.without("B") == Slots()
    with pytest.raises(SlotsFault, match="no slot has the name 'A'"):
        slots.without("A")


def test_next_number_fills_the_gap():
    assert Slots().next_number() == "1"
    assert Slots({10: "1", 20: "3", 30: "left"}).next_number() == "2"
    assert Slots({10: "1", 20: "2"}).next_number() == "3"


@pytest.mark.parametrize("name", ["", " a", "a ", "a\nb", "\x1b[31m", "x" * 25, "\ud800"])
def test_names_that_cannot_be_shown(name):
    with pytest.raises(SlotsFault, match="not a name"):
        Slots().named(1, name)


@pytest.mark.parametrize("text, fault", [
    ("[[slot]]\nname = 'a'", "slot 1 has other keys"),
    ("[[slot]]\nname = 'a'\nlocation = '1'", "slot 1 needs"),
    ("[[slot]]\nname = 'a'\nlocation = true", "slot 1 needs"),
    ("[[slot]]\nname = 'a'\nlocation = 0", "slot 1 needs"),
    ("[[slot]]\nname = 'a'\nlocation = 0x100000000", "slot 1 needs"),
    ("[[slot]]\nname = 1\nlocation = 1", "slot 1 needs"),
    ("[[slot]]\nname = ''\nlocation = 1", "not a name"),
    ("[[slot]]\nname = 'a'\nlocation = 1\n[[slot]]\nname = 'b'\nlocation = 1", "two slots"),
    ("[[slot]]\nname = 'a'\nlocation = 1\n[[slot]]\nname = 'a'\nlocation = 2", "already"),
    ("slot = 1", "only"), ("slot = [1]", "slot 1 has other keys"), ("slots = []", "only"),
    ("[[slot", "slots.toml: "), ("\udcff", "slots.toml: "),
])
def test_file_that_is_wrong(tmp_path, text, fault):
    path = tmp_path / "slots.toml"
    path.write_text(text, "utf-8", errors="surrogateescape")
    with pytest.raises(SlotsFault, match=fault) as raised:
        read_slots(path)
    assert str(path) in str(raised.value)


def test_file_that_cannot_be_used(tmp_path):
    (tmp_path / "slots.toml").mkdir()
    with pytest.raises(SlotsFault, match="cannot be read"):
        read_slots(tmp_path / "slots.toml")
    with pytest.raises(SlotsFault, match="cannot be written"):
        write_slots(tmp_path / "slots.toml", Slots({1: "a"}))
    assert [each.name for each in tmp_path.iterdir()] == ["slots.toml"]
    (tmp_path / "file").touch()
    with pytest.raises(SlotsFault, match="cannot be written"):
        write_slots(tmp_path / "file" / "slots.toml", Slots({1: "a"}))
