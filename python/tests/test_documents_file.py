from __future__ import annotations

import os

from hypothesis import given
from hypothesis import strategies as st

from plists import COMPLETE, FAILURE, step
from qnrescue.documents_file import DocumentsFile
from qnrescue.events import RestoreStatus

REPORTS = [step(3, 1, "a"), step(13, 40, "b"), FAILURE, COMPLETE]
STREAM = b"".join(REPORTS)


def steps(events) -> list[str]:
    return [event.step for event in events if isinstance(event, RestoreStatus)]


def test_no_file_yet(tmp_path) -> None:
    reader = DocumentsFile(tmp_path / "documents")
    assert list(reader.read()) == []
    (tmp_path / "documents").write_bytes(COMPLETE)
    assert steps(reader.read()) == ["Successful"]
    assert list(reader.read()) == []


@given(st.lists(st.integers(0, len(STREAM))))
def test_a_file_that_grows_in_space_that_was_reserved(tmp_path_factory, ends) -> None:
    path = tmp_path_factory.mktemp("job") / "documents"
    path.write_bytes(bytes(len(STREAM) + 1000))
    reader = DocumentsFile(path)
    found = []
    with path.open("r+b", buffering=0) as file:
        for end in [*sorted(ends), len(STREAM)]:
            file.write(STREAM[file.tell():end])
            found += steps(reader.read())
    assert found == ["a", "b", "Restoring image", "Successful"]
    assert reader.size == len(STREAM)
    os.truncate(path, reader.size)
    assert steps(DocumentsFile(path).read()) == found


def test_a_file_longer_than_what_is_read_at_once(tmp_path) -> None:
    path = tmp_path / "documents"
    path.write_bytes(STREAM * 200 + bytes(100))
    reader = DocumentsFile(path)
    assert len(list(reader.read())) == 800
    assert reader.size == len(STREAM) * 200
