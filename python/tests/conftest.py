"""What the tests share. They find the installed package, not the sources beside them."""

from __future__ import annotations

import signal
from collections.abc import Iterator
from pathlib import Path

import pytest
from hypothesis import settings

from bench_of_tests import TestBench
from mosquitto_of_tests import Mosquitto
from qnrescue import machine

# A busy machine is no reason to fail.
settings.register_profile("default", deadline=None, database=None)
settings.load_profile("default")
# Programs in the background of a shell ignore Control-C, and so do those that they start.
signal.signal(signal.SIGINT, signal.default_int_handler)


@pytest.fixture(autouse=True)
def environment(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    """Gives each test devices of its own; the processes that it starts leave no files beside the
    package, and write as they do for users."""
    monkeypatch.setenv(machine.FOLDER_VARIABLE, str(tmp_path / "machine"))
    monkeypatch.setenv("PYTHONDONTWRITEBYTECODE", "1")
    monkeypatch.delenv("PYTHONUNBUFFERED", raising=False)


@pytest.fixture
def bench(tmp_path: Path) -> Iterator[TestBench]:
    """Gives a bench with a double of the tool."""
    bench = TestBench(tmp_path)
    yield bench
    bench.close()


@pytest.fixture
def broker(tmp_path: Path) -> Iterator[Mosquitto]:
    """Gives a broker without users."""
    broker = Mosquitto.open(tmp_path / "broker")
    yield broker
    broker.kill()
