from __future__ import annotations

import pytest
from hypothesis import given
from hypothesis import strategies as st

from plists import COMPLETE, FAILURE, NO_DEVICE, TIMEOUT, document, internal_error, report, step
from qnrescue.documents import DocumentSplitter, parse_document
from qnrescue.outcome import JobState, RestoreProgress

STEPS = [step(operation, progress, f"step {operation}")
         for operation, progress in ((3, 1), (9, 15), (13, 40), (13, 60), (20, 99))]
HOSTILE = [b"rubbish</plist>", COMPLETE[:100] + b"\n", document("Other", 1),
           document("RestoreStatus", {"Status": "Failed"}), document("DeviceList", [])]


def outcome(stream: bytes, exit_status: int | None = 0, **how: bool) -> JobState:
    progress = RestoreProgress(**how)
    for text in DocumentSplitter().feed(stream):
        progress.feed(parse_document(text))
    return progress.ended(exit_status)[0]


@given(st.lists(st.sampled_from([*STEPS, *HOSTILE])),
       st.lists(st.sampled_from([COMPLETE, FAILURE, NO_DEVICE, TIMEOUT]), max_size=3),
       st.sampled_from([0, 1, None]), st.randoms())
def test_any_order_of_reports_gives_the_same_outcome(steps, ends, exit_status, random):
    reports = [*steps, *ends]
    first = outcome(b"".join(reports), exit_status)
    random.shuffle(reports)
    assert outcome(b"".join(reports), exit_status) is first


@given(st.lists(st.sampled_from([*STEPS, *HOSTILE, COMPLETE, FAILURE, NO_DEVICE, TIMEOUT])),
       st.lists(st.integers(0, 5000)))
def test_any_cutting_gives_the_same_state(reports, cuts):
    stream = b"".join(reports)
    ends = sorted(min(cut, len(stream)) for cut in cuts)
    states = []
    for borders in ([], ends):
        progress, splitter = RestoreProgress(), DocumentSplitter()
        for start, end in zip([0, *borders], [*borders, len(stream)]):
            for text in splitter.feed(stream[start:end]):
                progress.feed(parse_document(text))
        states.append((progress.operation, progress.step, progress.progress, progress.ended(0)))
    assert states[0] == states[1]


@pytest.mark.parametrize("stream, exit_status, state", [
    (COMPLETE, 0, JobState.SUCCEEDED),
    (COMPLETE, None, JobState.SUCCEEDED),
    (COMPLETE, 3, JobState.FAILED),
    (b"", 0, JobState.FAILED),
    (b"", None, JobState.INTERRUPTED),
    (STEPS[3], None, JobState.INTERRUPTED),
    (STEPS[3], -9, JobState.FAILED),
    (FAILURE, None, JobState.FAILED),
    (FAILURE + TIMEOUT, 0, JobState.FAILED),
    (COMPLETE + FAILURE, 0, JobState.FAILED),
    (TIMEOUT, 0, JobState.TIMED_OUT),
    (TIMEOUT, None, JobState.TIMED_OUT),
    (NO_DEVICE, 4, JobState.FAILED),
    (NO_DEVICE + TIMEOUT, 4, JobState.FAILED),
    (COMPLETE + NO_DEVICE, 0, JobState.FAILED),
    (internal_error(7, "another's seven", "AMRestoreErrorDomain"), 7, JobState.FAILED),
    (report(9, 15), 0, JobState.FAILED),
])
def test_outcome(stream: bytes, exit_status: int | None, state: JobState) -> None:
    assert outcome(stream, exit_status) is state


def test_restore_mode_is_an_end_when_it_was_asked_for() -> None:
    assert outcome(report(9, 15), enter_restore_mode=True) is JobState.SUCCEEDED
    assert outcome(report(8, 15), enter_restore_mode=True) is JobState.FAILED


def test_the_latest_report_is_the_state() -> None:
    progress = RestoreProgress()
    assert (progress.operation, progress.step, progress.progress) == (None, "", 0)
    for text in (*STEPS, NO_DEVICE):
        progress.feed(parse_document(text))
    assert (progress.operation, progress.step, progress.progress) == (20, "step 20", 99)
    progress.feed(parse_document(report(5, 250)))
    assert (progress.step, progress.progress) == ("Restoring", 100)
    progress.feed(parse_document(report(5, -3)))
    assert progress.progress == 0


def test_the_reason_is_the_first_failure() -> None:
    progress = RestoreProgress()
    assert not progress.has_failed
    progress.feed(parse_document(FAILURE))
    assert progress.has_failed
    progress.feed(parse_document(report(0, 0, "Failed")))
    assert progress.ended(None) == (JobState.FAILED, "the image is damaged")


def test_a_failure_without_an_error_has_a_reason() -> None:
    progress = RestoreProgress()
    progress.feed(parse_document(report(0, 0, "Failed")))
    assert progress.ended(1) == (JobState.FAILED, "Failed")


def test_last_words_are_part_of_the_reason() -> None:
    assert RestoreProgress().ended(70, "the scenario is invalid") == (
        JobState.FAILED, "ended with status 70: the scenario is invalid")
    assert RestoreProgress().ended(None, "the scenario is invalid") == (
        JobState.INTERRUPTED, "the tool ended without a final report: the scenario is invalid")


def test_only_queued_and_running_change() -> None:
    assert [state.value for state in JobState if not state.is_end] == ["queued", "running"]
