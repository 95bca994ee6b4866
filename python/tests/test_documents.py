from __future__ import annotations

import tracemalloc

import pytest
from hypothesis import given
from hypothesis import strategies as st

from plists import COMPLETE, ECID, FAILURE, NO_DEVICE, document, report, step
from qnrescue.documents import LIMIT, DocumentSplitter, parse_document
from qnrescue.events import (CommandSuccess, DeviceInfo, DeviceList, ErrorDetails, InternalError,
                             RestoreStatus, UnknownDocument, UnreadableDocument)

SMALL = 400  # a limit that documents pass in tests

# Pieces of streams: whole documents, cut ones, such that are too long, and rubbish.
pieces = st.one_of(
    st.sampled_from([COMPLETE, FAILURE, NO_DEVICE, COMPLETE[:100], COMPLETE[100:], b"\n", b"  \n",
                     b"</plist>", b"<?xml", b"<?x", b"<?xml<?xml", b"<", b"x" * SMALL,
                     b"x" * (SMALL + 1), b"<?xml" + b"y" * (SMALL - 5), b"<?xml" + b"z" * SMALL,
                     b"<?xml" + b"z" * (SMALL - 13) + b"</plist>",
                     b"<?xml" + b"z" * (SMALL - 12) + b"</plist>"]),
    st.binary(max_size=20))
streams = st.lists(pieces, max_size=8).map(b"".join)


def split(chunks: list[bytes], limit: int) -> tuple[list[bytes], bytes]:
    splitter = DocumentSplitter(limit)
    documents = [text for chunk in chunks for text in splitter.feed(chunk)]
    return documents, splitter.pending


@given(streams, st.lists(st.integers(0, 3000), max_size=10))
def test_any_cutting_gives_the_same_documents(stream: bytes, cuts: list[int]) -> None:
    ends = sorted(min(cut, len(stream)) for cut in cuts)
    chunks = [stream[start:end] for start, end in zip([0, *ends], [*ends, len(stream)])]
    for limit in (SMALL, 5000):
        whole = split([stream], limit)
        assert split(chunks, limit) == whole
        assert split([stream[at:at + 1] for at in range(len(stream))], limit) == whole


@given(streams)
def test_no_document_is_longer_than_the_limit(stream: bytes) -> None:
    documents, pending = split([stream], SMALL)
    assert all(0 < len(text) <= SMALL for text in documents)
    assert len(pending) <= SMALL + len(b"<?xml") - 1


def test_what_may_be_the_next_start_is_not_counted_before_it_is_certain() -> None:
    text = b"<?xml" + b"y" * (SMALL - 7) + b"<?x"
    assert split([text, b"ml>"], SMALL) == ([text[:-3]], b"<?xml>")
    assert split([text, b"y</plist>"], SMALL) == ([(text + b"y")[:SMALL]], b"")


def test_documents_are_found_between_white_space() -> None:
    documents, pending = split([b"\n\n" + COMPLETE + b" \t" + FAILURE + b"\n<?xml vers"], LIMIT)
    assert documents == [COMPLETE.strip(), FAILURE.strip()]
    assert pending == b"<?xml vers"


def test_a_document_cut_at_a_nul_is_followed_by_the_next_one() -> None:
    cut = COMPLETE[:150] + b"\n"
    documents, _ = split([cut + FAILURE], LIMIT)
    assert documents == [cut, FAILURE.strip()]
    assert isinstance(parse_document(documents[0]), UnreadableDocument)
    assert isinstance(parse_document(documents[1]), RestoreStatus)


def test_reading_goes_on_after_a_document_that_is_too_long() -> None:
    limit = len(COMPLETE) + 10
    long = document("RestoreStatus", "x" * limit)
    documents, pending = split([long, COMPLETE], limit)
    assert documents == [long[:limit], COMPLETE.strip()]
    assert isinstance(parse_document(documents[0]), UnreadableDocument)
    assert pending == b""


def test_a_document_without_end_needs_bounded_memory() -> None:
    splitter = DocumentSplitter()
    splitter.feed(b"<?xml ")
    chunk = b"a" * LIMIT
    tracemalloc.start()
    found = [text for _ in range(64) for text in splitter.feed(chunk)]
    _, peak = tracemalloc.get_traced_memory()
    tracemalloc.stop()
    assert len(found) == 1
    assert peak < 8 * LIMIT
    assert splitter.feed(COMPLETE) == [COMPLETE.strip()]


def test_one_huge_chunk_needs_bounded_memory() -> None:
    splitter = DocumentSplitter()
    chunk = b"<?xml " + b"a" * (64 * LIMIT)
    tracemalloc.start()
    found = splitter.feed(chunk)
    _, peak = tracemalloc.get_traced_memory()
    tracemalloc.stop()
    assert len(found) == 1
    assert peak < 8 * LIMIT


@given(st.one_of(st.binary(), streams, st.text().map(str.encode)))
def test_parsing_raises_nothing(text: bytes) -> None:
    parse_document(text)


json_values = st.recursive(
    st.one_of(st.booleans(), st.integers(-2**63, 2**63 - 1), st.text(st.characters(
        min_codepoint=32, max_codepoint=0xD7FF)), st.floats(allow_nan=False), st.binary()),
    lambda inner: st.lists(inner) | st.dictionaries(st.sampled_from(
        ["Status", "Operation", "Progress", "QN_OperationName", "Error", "Domain", "Code", "ECID",
         "ProductID", "BoardID", "FailureReason"]), inner), max_leaves=20)


@given(st.sampled_from(["DeviceList", "DeviceInfo", "CommandSuccess", "RestoreStatus",
                        "InternalError", "Other"]), json_values)
def test_documents_with_any_value_are_typed_or_unknown(kind: str, value: object) -> None:
    event = parse_document(document(kind, value))
    if isinstance(event, RestoreStatus):
        assert type(event.status) is str
        assert type(event.operation) is int and type(event.progress) is int
        assert type(event.step) is str
    elif isinstance(event, InternalError):
        assert type(str(event.error)) is str and type(event.error.code) is int
    elif isinstance(event, DeviceList):
        assert all(type(ecid) is str for ecid in event.ecids)
    elif isinstance(event, UnknownDocument):
        assert event.type == kind
    else:
        assert isinstance(event, (CommandSuccess, DeviceInfo))


def test_events() -> None:
    assert parse_document(document("DeviceList", [ECID])) == DeviceList((ECID,))
    assert parse_document(document("CommandSuccess", True)) == CommandSuccess()
    assert parse_document(NO_DEVICE) == InternalError(ErrorDetails(
        "qnrescue", 4, "described", f"Failed to find device with ecid {ECID} after 3 seconds"))
    event = parse_document(step(21, 30, "Restoring image"))
    assert isinstance(event, RestoreStatus)
    assert (event.operation, event.progress, event.step) == (21, 30, "Restoring image")


def test_numbers_of_a_device_are_unsigned() -> None:
    event = parse_document(document("DeviceInfo", {
        "ECID": ECID, "ProductID": -1, "BoardID": -1, "ChipID": 33040, "ProductType": -2,
        "FusingInfo": 3, "LocationID": -2147483648, "SerialNumber": "F4"}))
    assert event == DeviceInfo(ECID, 0xFFFF, 0xFFFFFFFF, 33040, 0xFFFFFFFE, 3, 0x80000000, "F4")


@pytest.mark.parametrize("value", [
    {"Status": "Restoring", "Operation": "5", "Progress": 1},
    {"Status": "Restoring", "Operation": True, "Progress": 1},
    {"Status": 1, "Operation": 5, "Progress": 1},
    {"Status": "Restoring", "Operation": 5},
    ["Restoring", 5, 1],
])
def test_a_report_with_values_of_other_types_is_unknown(value: object) -> None:
    assert isinstance(parse_document(document("RestoreStatus", value)), UnknownDocument)


def hostile(text: str) -> bytes:
    return report(5, 5, Text="HERE").replace(b"HERE", text.encode())


def test_texts_that_xml_does_not_allow_are_read() -> None:
    event = parse_document(hostile("a\x01\x1f\ufffe\uffffb"))
    assert isinstance(event, RestoreStatus)
    assert event.details["Text"] == "ab"


@pytest.mark.parametrize("date", ["10000-01-01T00:00:00Z", "-0001-01-01T00:00:00Z", "soon",
                                  "0000-13-01T00:00:00Z"])
def test_a_date_that_python_does_not_know_is_a_text(date: str) -> None:
    event = parse_document(hostile(f"</string><key>Date</key><date>{date}</date>"
                                   "<key>Rest</key><string>"))
    assert isinstance(event, RestoreStatus)
    assert event.details["Date"] == date


ENTITIES = (b'<?xml version="1.0"?><!DOCTYPE plist [<!ENTITY a "aaaaaaaaaa">'
            + b"".join(b'<!ENTITY a%d "%s">' % (level, b"&a%d;" % (level - 1) * 10 if level > 1
                                                else b"&a;" * 10) for level in range(1, 12))
            + b"]><plist><dict><key>Type</key><string>&a11;</string><key>Value</key><true/></dict>"
            b"</plist>")
FILE_ENTITY = (b'<?xml version="1.0"?><!DOCTYPE plist [<!ENTITY a SYSTEM "file:///etc/passwd">]>'
               b"<plist><dict><key>Type</key><string>x</string><key>Value</key><string>&a;</string>"
               b"</dict></plist>")


@pytest.mark.parametrize("text", [
    ENTITIES, FILE_ENTITY,
    document("Deep", "HERE").replace(b"<string>HERE</string>",
                                     b"<array>" * 40000 + b"</array>" * 40000),
    document("Deep", "HERE").replace(b"<string>HERE</string>",
                                     b"<array>" * 70 + b"</array>" * 70),
    document("Long", "x" * LIMIT),
    document("Number", "HERE").replace(b"<string>HERE</string>",
                                       b"<integer>" + b"9" * 5000 + b"</integer>"),
    COMPLETE[:-20], b"", b"<plist/>", b"bplist00" + bytes(40), b"\xff\xfe<\0?\0x\0m\0l\0",
    document("Type", 1).replace(b"<string>Type</string>", b"<true/>"),
], ids=["entities", "file", "deep", "rather-deep", "long", "number", "cut", "empty", "bare",
        "binary", "utf-16", "type"])
def test_hostile_documents_are_unreadable(text: bytes) -> None:
    event = parse_document(text)
    assert isinstance(event, UnreadableDocument)
    assert event.reason
    repr(event)


def test_values_may_be_nested() -> None:
    nested = document("Deep", "HERE").replace(b"<string>HERE</string>",
                                              b"<array>" * 60 + b"</array>" * 60)
    assert isinstance(parse_document(nested), UnknownDocument)
