"""Restores devices at the same time with asyncio:
restore_side_by_side.py BUNDLE ECID... [-- COMMAND...]

The restores end with this program. Those of order_restores.py do not."""

import asyncio
import sys

from qnrescue.aio import AsyncTool
from qnrescue.events import RestoreStatus
from qnrescue.jobs import JobState


async def restore(tool: AsyncTool, ecid: str, bundle: str) -> bool:
    """Restores the device and returns whether that worked."""
    async with await tool.restore(ecid, bundle) as run:
        async for event in run:
            if isinstance(event, RestoreStatus):
                print(ecid, f"{event.progress} %", event.step, flush=True)
    print(ecid, run.state, run.reason, flush=True)
    return run.state is JobState.SUCCEEDED


async def main(words: list[str]) -> list[bool]:
    dashes = words.index("--") if "--" in words else len(words)
    bundle, *ecids = words[:dashes]
    tool = AsyncTool(words[dashes + 1:] or "qnrescue", silence_timeout=600)
    return await asyncio.gather(*(restore(tool, ecid, bundle) for ecid in ecids))


sys.exit(not all(asyncio.run(main(sys.argv[1:]))))
