"""When the steps of a restore began."""

from __future__ import annotations

from pathlib import Path

from bench_of_tests import TestBench
from qnrescue.steps_file import Step, StepsFile, read_steps


def test_writes_down_each_step_once(tmp_path: Path) -> None:
    file = StepsFile(tmp_path / "steps")
    for name, seconds in (("", 0.1), ("Booting", 1.04), ("Booting", 2.0), ("Flashing", 3.0),
                          ("Booting", 4.0)):
        file.note(name, seconds)
    assert read_steps(tmp_path / "steps") == [Step("Booting", 1.0), Step("Flashing", 3.0),
                                              Step("Booting", 4.0)]


def test_steps_that_are_read_again_keep_their_times(tmp_path: Path) -> None:
    first = StepsFile(tmp_path / "steps")
    first.note("Booting", 1.0)
    first.note("Flashing", 2.0)
    second = StepsFile(tmp_path / "steps")
    for name in ("Booting", "Flashing", "Verifying"):
        second.note(name, 60.0)
    assert read_steps(tmp_path / "steps") == [Step("Booting", 1.0), Step("Flashing", 2.0),
                                              Step("Verifying", 60.0)]


def test_a_file_that_is_missing_or_broken_is_no_failure(tmp_path: Path) -> None:
    assert read_steps(tmp_path / "missing") == []
    (tmp_path / "broken").write_bytes(b'["Booting", 1]\n["Fla\n7\n["a", "b"]\nnull\n')
    assert read_steps(tmp_path / "broken") == [Step("Booting", 1.0)]
    (tmp_path / "no text").write_bytes(b"\xff\xfe\n")
    assert read_steps(tmp_path / "no text") == []
    StepsFile(tmp_path / "no folder" / "steps").note("Booting", 1.0)


def test_a_job_has_its_steps(bench: TestBench) -> None:
    job = bench.restore("report 5 9", "report 9 20", "complete")
    names = [step.name for step in read_steps(bench.desk.files(job.id).steps)]
    assert len(names) == 3
    assert names[-1] == job.step
