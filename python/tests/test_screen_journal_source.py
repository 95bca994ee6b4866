"""The bench of this machine as a station of the screen."""

from __future__ import annotations

import asyncio
import time
from collections.abc import Awaitable, Callable
from pathlib import Path

import pytest

from bench_of_tests import FAKE_TOOL, TIME_LIMIT, TestBench
from plists import ECID
from qnrescue.bench.slots import FILE_NAME, Slots, write_slots
from qnrescue.jobs import Job, JobState
from qnrescue.places import BenchFolder
from qnrescue.screen.board import Board
from qnrescue.screen.journal_source import BenchSettings, JournalSource, bundle_names
from qnrescue.screen.source import RestoreRequest
from qnrescue.tool import Tool
from tabletop import Tabletop


async def until(condition: Callable[[], object]) -> None:
    """Waits until the condition holds."""
    limit = time.monotonic() + TIME_LIMIT
    while not condition():
        assert time.monotonic() < limit, "it takes too long"
        await asyncio.sleep(0.05)


def watch(bench: TestBench, act: Callable[[JournalSource, Board], Awaitable[None]], *,
          tool: tuple[str, ...] = FAKE_TOOL) -> None:
    """Keeps a board true while there are acts."""
    async def run() -> None:
        source = JournalSource(BenchSettings(
            "here", BenchFolder(bench.folder), Tool(tool), tool, bench.path, may_erase=False))
        board = Board()
        task = asyncio.create_task(source.run(board))
        await until(lambda: task.done() or board.station("here"))
        try:
            await act(source, board)
        finally:
            task.cancel()
            await asyncio.wait([task])

    asyncio.run(run())


def bundle_of(bench: TestBench, *actions: str) -> str:
    """Returns the name of a new bundle for which the double does these actions."""
    (bench.path / "update.ipsw").write_text("\n".join(actions))
    return "update.ipsw"


def restore_elsewhere(path: Path, *actions: str) -> Job:
    """Returns a job that ended, ordered by another connection."""
    other = TestBench(path)
    job = other.restore(*actions)
    other.desk.close()
    return job


def test_shows_the_devices_in_their_slots(bench: TestBench) -> None:
    write_slots(bench.folder / FILE_NAME, Slots({7: "left 1", 8: "left 2"}))

    async def act(source: JournalSource, board: Board) -> None:
        await until(lambda: board.device("here", ECID))
        device = board.device("here", ECID)
        assert device and device.slot == "left 1"
        assert abs(device.since - time.time()) < TIME_LIMIT
        await until(lambda: board.view(0)["here"]["tiles"].get("slot:left 2"))

    watch(bench, act)


def test_a_device_that_is_unplugged_has_gone(bench: TestBench) -> None:
    tabletop = Tabletop(bench.path)
    tabletop.plug_in(ECID, location=7)

    async def act(source: JournalSource, board: Board) -> None:
        await until(lambda: board.device("here", ECID))
        tabletop.unplug(ECID)
        await until(lambda: not board.device("here", ECID))

    watch(bench, act, tool=tuple(tabletop.command))


def test_orders_and_follows_a_restore(bench: TestBench) -> None:
    name = bundle_of(bench, "report 5 9", bench.gate(), "report 9 20", "complete")

    async def act(source: JournalSource, board: Board) -> None:
        request = RestoreRequest("order-1", ECID, name, erase=False)
        assert (await source.order("here", request, "the test")).accepted
        assert (await source.order("here", request, "the test")).accepted
        await until(lambda: (job := board.job("here", "order-1")) and job.step == "step 5")
        papers = await source.papers("here", "order-1")
        assert [step.name for step in papers.steps] == ["step 5"]
        bench.go()
        await until(lambda: (job := board.job("here", "order-1")) and job.state.is_end)
        job = board.job("here", "order-1")
        assert job and (job.state, job.asked_by) == (JobState.SUCCEEDED, "the test")
        papers = await source.papers("here", "order-1")
        assert [document["Type"] for document in papers.documents] == ["RestoreStatus"] * 3
        assert (papers.left_out, papers.file) == (0, bench.desk.files("order-1").documents)

    watch(bench, act)
    assert bench.starts() == [ECID]


def test_cancels_a_restore(bench: TestBench) -> None:
    name = bundle_of(bench, "report 5 9", "wait 600")

    async def act(source: JournalSource, board: Board) -> None:
        await source.order("here", RestoreRequest("order-1", ECID, name, False), "the test")
        await until(lambda: (job := board.job("here", "order-1")) and job.step)
        assert (await source.cancel("here", "order-1", "the test")).accepted
        await until(lambda: (job := board.job("here", "order-1")) and job.state.is_end)
        job = board.job("here", "order-1")
        assert job and job.state is JobState.CANCELLED

    watch(bench, act)


def test_says_why_an_order_is_refused(bench: TestBench) -> None:
    name = bundle_of(bench, "wait 600")

    async def act(source: JournalSource, board: Board) -> None:
        assert (await source.order("here", RestoreRequest("order-1", ECID, name, False),
                                   "the test")).accepted
        answer = await source.order("here", RestoreRequest("order-2", ECID, name, False), "me")
        assert not answer.accepted and "a job already" in answer.reason
        answer = await source.order("here", RestoreRequest("order-3", ECID, "none", False), "me")
        assert not answer.accepted and "no such bundle" in answer.reason
        assert board.job("here", "order-3") is None

    watch(bench, act)


def test_a_job_that_has_ended_is_not_cancelled(bench: TestBench) -> None:
    job = bench.restore("complete")

    async def act(source: JournalSource, board: Board) -> None:
        answer = await source.cancel("here", job.id, "the test")
        assert (answer.accepted, answer.reason) == (False, "the job has ended: succeeded")

    watch(bench, act)


def test_shows_jobs_that_others_ordered(bench: TestBench) -> None:
    earlier = bench.restore("complete")

    async def act(source: JournalSource, board: Board) -> None:
        await until(lambda: board.job("here", earlier.id))
        later = await asyncio.to_thread(restore_elsewhere, bench.path, "failure")
        await until(lambda: (job := board.job("here", later.id)) and job.state is JobState.FAILED)

    watch(bench, act)


@pytest.mark.parametrize("empty", [0.0, 1.0])
def test_goes_on_with_the_journal_after_a_broken_one(bench: TestBench, empty: float) -> None:
    """The source may see the new journal while there is nothing in it."""
    bench.restore("complete")
    bench.restore("complete")
    bench.kill_supervisors()  # it would fill the new journal at once

    async def act(source: JournalSource, board: Board) -> None:
        await until(lambda: len(board.view(time.time())["here"]["tiles"]) >= 2)
        bench.desk.journal.replace_broken()
        await asyncio.sleep(empty)
        job = await asyncio.to_thread(restore_elsewhere, bench.path, "complete")
        await until(lambda: board.job("here", job.id))

    watch(bench, act)


def test_says_what_is_wrong(bench: TestBench) -> None:
    (bench.folder / FILE_NAME).write_text("rubbish")

    async def act(source: JournalSource, board: Board) -> None:
        def note() -> str:
            station = board.station("here")
            return station.note if station else ""

        await until(lambda: "cannot be started" in note() and FILE_NAME in note())
        write_slots(bench.folder / FILE_NAME, Slots({7: "left 1"}))
        await until(lambda: FILE_NAME not in note())

    watch(bench, act, tool=(str(bench.path / "missing"),))


def test_shows_only_the_latest_documents(bench: TestBench) -> None:
    job = bench.restore(*(f"report 5 {number % 100}" for number in range(250)), "complete")

    async def act(source: JournalSource, board: Board) -> None:
        papers = await source.papers("here", job.id)
        assert (len(papers.documents), papers.left_out) == (200, 51)
        assert papers.documents[-1]["Value"]["Operation"] == 0

    watch(bench, act)


def test_a_document_is_shown_when_it_is_complete(bench: TestBench) -> None:
    job = bench.restore("report 5 9")
    path = bench.desk.files(job.id).documents
    document = path.read_bytes()
    assert document.count(b"<?xml") == 1

    async def act(source: JournalSource, board: Board) -> None:
        for length in (0, 1, len(document) // 2, len(document)):
            path.write_bytes(document + document[:length] + bytes(100000))
            papers = await source.papers("here", job.id)
            assert [each["Type"] for each in papers.documents] == ["RestoreStatus"] * (
                2 if length == len(document) else 1)

    watch(bench, act)


def test_a_job_without_documents_has_a_note(bench: TestBench) -> None:
    async def act(source: JournalSource, board: Board) -> None:
        papers = await source.papers("here", "never")
        assert (papers.file, papers.note) == (None, "the tool has not been started")

    watch(bench, act)


def test_bundles_are_what_is_in_the_folder(tmp_path: Path) -> None:
    for name in ("b.ipsw", "a.ipsw", ".hidden"):
        (tmp_path / name).touch()
    assert bundle_names(tmp_path) == ("a.ipsw", "b.ipsw")
    assert bundle_names(tmp_path / "missing") == ()
