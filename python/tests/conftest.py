"""What the tests share."""

from __future__ import annotations

import sys
from collections.abc import Iterator
from pathlib import Path

import pytest
from hypothesis import settings

sys.path[:0] = [str(Path(__file__).parents[1]), str(Path(__file__).parent)]

from bench_of_tests import TestBench  # noqa: E402

# A busy machine is no reason to fail.
settings.register_profile("default", deadline=None, database=None)
settings.load_profile("default")


@pytest.fixture(autouse=True)
def environment(monkeypatch: pytest.MonkeyPatch) -> None:
    """Lets processes that the tests start find the package."""
    monkeypatch.setenv("PYTHONPATH", str(Path(__file__).parents[1]))
    monkeypatch.setenv("PYTHONDONTWRITEBYTECODE", "1")


@pytest.fixture
def bench(tmp_path: Path) -> Iterator[TestBench]:
    """Gives a bench with a double of the tool."""
    bench = TestBench(tmp_path)
    yield bench
    bench.close()
