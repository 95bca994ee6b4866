"""What is written down about a job in its own folder, in case the journal breaks."""

from __future__ import annotations

import json
import os
from collections.abc import Iterator

from qnrescue.jobs import Job
from qnrescue.places import BenchFolder, JobFolder


def write_record(folder: JobFolder, job: Job) -> None:
    """Writes down the job, in place of what was there. Raises OSError."""
    new = folder.record.with_suffix(".new")
    with new.open("w", encoding="utf-8") as file:
        json.dump(job.as_dict(), file, indent=1)
        file.flush()
        os.fsync(file.fileno())
    new.replace(folder.record)


def read_records(folder: BenchFolder, known: frozenset[str]) -> Iterator[Job]:
    """Yields the jobs that have a readable record, without those that are known."""
    try:
        names = os.listdir(folder.jobs)
    except OSError:
        return
    for name in names:
        try:
            if name not in known:
                text = folder.job(name).record.read_text(encoding="utf-8")
                yield Job.from_dict(json.loads(text))
        except (OSError, ValueError, TypeError, KeyError):
            continue  # a folder of something else
