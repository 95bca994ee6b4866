"""When stations try their broker again."""

from __future__ import annotations

import time

import pytest

from qnrescue.fleet.retries import FIRST_LIMIT, LAST_LIMIT, Retries

STATIONS = 2000


@pytest.fixture
def clock(monkeypatch: pytest.MonkeyPatch) -> list[float]:
    """Gives the time of the monotonic clock, which the test sets."""
    now = [1000.0]
    monkeypatch.setattr(time, "monotonic", lambda: now[0])
    return now


def wave(clock: list[float], stations: list[Retries], limit: float) -> list[int]:
    """Returns how many of the stations try again in each second of so many."""
    lost_at = clock[0]
    counts = []
    for second in range(1, round(limit) + 1):
        clock[0] = lost_at + second
        counts.append(sum(each.is_due for each in stations) - sum(counts))
    return counts


def test_the_first_try_is_due_at_once(clock: list[float]) -> None:
    assert Retries().is_due


@pytest.mark.parametrize("failures, limit", [(1, FIRST_LIMIT), (2, 10.0), (3, 20.0),
                                             (4, LAST_LIMIT), (50, LAST_LIMIT)])
def test_stations_that_fail_together_do_not_try_again_together(
        clock: list[float], failures: int, limit: float) -> None:
    stations = [Retries() for _ in range(STATIONS)]
    for each in stations:
        for _ in range(failures):
            each.note_failure()
    counts = wave(clock, stations, limit)
    even = STATIONS / limit
    assert sum(counts) == STATIONS  # nobody waits for longer
    assert min(counts) > even / 3 and max(counts) < 2 * even


def test_after_a_success_the_limit_is_the_first_one(clock: list[float]) -> None:
    stations = [Retries() for _ in range(50)]
    for each in stations:
        for _ in range(10):
            each.note_failure()
        each.note_success()
        each.note_failure()
    clock[0] += FIRST_LIMIT
    assert all(each.is_due for each in stations)
