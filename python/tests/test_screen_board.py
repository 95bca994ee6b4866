"""Which tiles a board has."""

from __future__ import annotations

from typing import Any

import pytest

from qnrescue.jobs import JobState
from qnrescue.screen import board as module
from qnrescue.screen.board import Board, Device, Station
from screen_of_tests import ECID, job

NOW = 1100.0
OTHER = "000A35D83C60802F"


def board_of(*slots: str) -> Board:
    """Returns a board with the station "north"."""
    board = Board()
    board.set_station(Station("north", slots=slots))
    return board


def tiles(board: Board, now: float = NOW) -> dict[str, dict[str, Any]]:
    """Returns the tiles of the station by their keys."""
    found: dict[str, dict[str, Any]] = board.view(now)["north"]["tiles"]
    return found


def looks(board: Board, now: float = NOW) -> dict[str, str]:
    """Returns the state of each tile."""
    return {key: tile["look"] for key, tile in tiles(board, now).items()}


def test_a_slot_is_empty_until_a_device_is_in_it() -> None:
    board = board_of("left 1", "left 2")
    assert looks(board) == {"slot:left 1": "empty", "slot:left 2": "empty"}
    board.set_device("north", Device(ECID, "left 2", "F17XK1"))
    assert looks(board) == {"slot:left 1": "empty", "slot:left 2": "attached"}
    assert tiles(board)["slot:left 2"]["serial"] == "F17XK1"


def test_a_running_job_has_its_step_and_the_time_of_its_start() -> None:
    board = board_of("left 1")
    board.set_device("north", Device(ECID, "left 1"))
    board.set_job("north", job(step="Booting", progress=42))
    tile = tiles(board)["slot:left 1"]
    assert (tile["look"], tile["text"], tile["progress"], tile["started"], tile["seconds"]) == (
        "running", "Booting", 42, 1001.0, None)


def test_an_ended_job_has_its_reason_and_how_long_it_took() -> None:
    board = board_of("left 1")
    board.set_device("north", Device(ECID, "left 1"))
    board.set_job("north", job(state=JobState.FAILED, reason="no NAND", step="Booting"))
    tile = tiles(board)["slot:left 1"]
    assert (tile["look"], tile["text"], tile["started"], tile["seconds"]) == (
        "failed", "no NAND", None, 5.0)


def test_a_slot_shows_a_device_that_has_gone_until_the_next_one_arrives() -> None:
    board = board_of("left 1")
    board.set_device("north", Device(ECID, "left 1", "F17XK1"))
    board.set_job("north", job(state=JobState.SUCCEEDED))
    board.remove_device("north", ECID)
    tile = tiles(board)["slot:left 1"]
    assert (tile["look"], tile["attached"], tile["serial"]) == ("succeeded", False, "F17XK1")
    board.set_device("north", Device(OTHER, "left 1"))
    assert looks(board) == {"slot:left 1": "attached"}


def test_a_device_that_has_moved_leaves_its_slot() -> None:
    board = board_of("left 1", "left 2")
    board.set_job("north", job(state=JobState.FAILED))
    board.set_device("north", Device(ECID, "left 2"))
    assert looks(board) == {"slot:left 1": "empty", "slot:left 2": "failed"}


def test_a_device_that_comes_back_later_is_a_new_visit() -> None:
    board = board_of("left 1")
    board.set_job("north", job(state=JobState.FAILED))
    board.set_device("north", Device(ECID, "left 1", since=1006.0 + 30))
    assert looks(board) == {"slot:left 1": "failed"}, "it has restarted"
    board.set_device("north", Device(ECID, "left 1", since=1006.0 + 3600))
    assert looks(board) == {"slot:left 1": "attached"}


def test_a_device_in_no_slot_has_a_tile() -> None:
    board = board_of("left 1")
    board.set_device("north", Device(OTHER))
    board.set_job("north", job(slot=""))
    assert looks(board) == {"slot:left 1": "empty", f"device:{ECID}": "running",
                            f"device:{OTHER}": "attached"}


def test_a_device_in_no_slot_is_shown_for_a_while_after_it_has_gone() -> None:
    board = board_of()
    board.set_job("north", job(state=JobState.SUCCEEDED, slot=""))
    assert looks(board) == {f"device:{ECID}": "succeeded"}
    assert looks(board, now=1006.0 + 2 * 3600) == {}


def test_a_refused_job_hides_none_before_it() -> None:
    board = board_of("left 1")
    board.set_device("north", Device(ECID, "left 1"))
    board.set_job("north", job("first"))
    board.set_job("north", job("second", JobState.REFUSED, ordered_at=1002.0))
    assert tiles(board)["slot:left 1"]["job"] == "first"


def test_the_latest_job_of_a_device_is_shown() -> None:
    board = board_of("left 1")
    board.set_job("north", job("second", JobState.CANCELLED, ordered_at=1005.0))
    board.set_job("north", job("first", JobState.FAILED))
    assert tiles(board)["slot:left 1"]["job"] == "second"


def test_a_station_of_which_only_jobs_are_known_is_offline() -> None:
    board = Board()
    board.set_job("south", job())
    assert board.view(NOW)["south"]["head"]["online"] is False


def test_forgets_stations_and_jobs() -> None:
    board = board_of()
    board.set_job("north", job(slot=""))
    board.remove_job("north", "job-1")
    assert looks(board) == {}
    board.remove_station("north")
    assert board.view(NOW) == {}


def test_a_job_as_a_value_names_no_folder_and_no_program() -> None:
    board = board_of()
    value = board.job_value("north", job())
    assert value["bundle"] == "update.ipsw"
    assert "/bundles" not in str(value)


def test_asking_for_a_station_makes_none() -> None:
    board = Board()
    assert board.job("south", "job-1") is board.device("south", ECID) is board.station("south")
    board.remove_device("south", ECID)
    board.remove_job("south", "job-1")
    assert board.view(NOW) == {}


def test_a_running_job_is_shown_also_if_another_device_is_in_its_slot() -> None:
    board = board_of("left 1")
    board.set_device("north", Device(OTHER, "left 1"))
    board.set_job("north", job())
    assert looks(board) == {"slot:left 1": "attached", f"device:{ECID}": "running"}
    board.set_job("north", job(state=JobState.FAILED))
    assert looks(board) == {"slot:left 1": "attached"}


def test_a_job_is_forgotten_a_day_after_its_end() -> None:
    board = board_of("left 1")
    board.set_job("north", job(state=JobState.FAILED))
    board.set_job("north", job("waits", device=OTHER, slot=""))
    day = 24 * 3600
    assert looks(board, 1006.0 + day - 1)["slot:left 1"] == "failed"
    assert looks(board, 1006.0 + day + 1) == {"slot:left 1": "empty", f"device:{OTHER}": "running"}
    assert board.job("north", "job-1") is None


def test_a_tile_has_the_beginning_of_a_long_text() -> None:
    board = board_of("left 1")
    board.set_job("north", job(step="x" * 60000))
    assert tiles(board)["slot:left 1"]["text"] == "x" * 200


def test_a_station_with_too_many_devices_and_jobs_shows_the_latest(
        monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(module, "_MOST", 2)
    board = board_of()
    for number in range(5):
        board.set_device("north", Device(f"{number:016X}"))
        board.set_job("north", job(f"job-{number}", device=f"{number + 10:016X}", slot=""))
    assert list(looks(board)) == [f"device:{number:016X}" for number in (3, 4, 13, 14)]
