"""Orders the restore of devices, and shows it: order_restores.py BUNDLE ECID... [-- COMMAND...]

The restores are jobs: they go on when this program ends."""

import sys

from qnrescue.desk import Desk
from qnrescue.jobs import JobOrder, JobState

words = sys.argv[1:]
dashes = words.index("--") if "--" in words else len(words)
bundle, *ecids = words[:dashes]
tool = tuple(words[dashes + 1:]) or ("qnrescue",)

with Desk() as desk:
    jobs = [desk.order(JobOrder(ecid, bundle, tool=tool)) for ecid in ecids]
    for job in desk.changes(*(job.id for job in jobs)):
        print(job.device, job.state, f"{job.progress} %", job.reason or job.step, flush=True)
    states = {desk.journal.job(job.id).state for job in jobs}
sys.exit(states != {JobState.SUCCEEDED})
