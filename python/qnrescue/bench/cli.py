"""The command line of qnrescue-bench."""

from __future__ import annotations

import argparse
import logging
import sys
from collections.abc import Sequence

from qnrescue.desk import Desk
from qnrescue.jobs import Job, JobOrder, JobState
from qnrescue.places import bench_folder
from qnrescue.supervisor import supervise


def describe(job: Job) -> str:
    """Returns a line about the job."""
    return " ".join(str(part) for part in (job.id, job.device, job.state, f"{job.progress} %",
                                           job.step, job.reason) if part)


def restore(desk: Desk, options: argparse.Namespace) -> int:
    tool = tuple(options.tool.split("\n")) if options.tool else ("qnrescue",)
    jobs = [desk.order(JobOrder(ecid, options.bundle, erase=options.erase, tool=tool))
            for ecid in options.ecids]
    return watch(desk, [job.id for job in jobs])


def watch(desk: Desk, job_ids: Sequence[str]) -> int:
    for job in desk.changes(*job_ids):
        print(describe(job), flush=True)
    states = {desk.journal.job(job_id).state for job_id in job_ids}
    return 0 if states == {JobState.SUCCEEDED} else 1


def main(words: Sequence[str] | None = None) -> int:
    """Runs the command and returns its exit status."""
    parser = argparse.ArgumentParser(prog="qnrescue-bench")
    parser.add_argument("--folder")
    parser.add_argument("--tool", help="the words that start the tool, one a line")
    actions = parser.add_subparsers(dest="action", required=True)
    ordering = actions.add_parser("restore")
    ordering.add_argument("bundle")
    ordering.add_argument("ecids", nargs="+")
    ordering.add_argument("--erase", action="store_true")
    actions.add_parser("jobs")
    for action in ("follow", "cancel"):
        actions.add_parser(action).add_argument("job")
    actions.add_parser("supervise")
    options = parser.parse_args(words)
    if options.action == "supervise":
        logging.basicConfig(level=logging.INFO, format="%(asctime)s %(message)s")
        return 0 if supervise(bench_folder(options.folder), None) else 1
    with Desk(options.folder) as desk:
        if options.action == "restore":
            return restore(desk, options)
        if options.action == "follow":
            return watch(desk, [options.job])
        if options.action == "cancel":
            print(describe(desk.cancel(options.job)))
            return 0
        for job in reversed(desk.journal.jobs()):
            print(describe(job))
    return 0


if __name__ == "__main__":
    sys.exit(main())
