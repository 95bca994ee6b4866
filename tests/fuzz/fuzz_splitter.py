"""Feeds the document splitter of the Python package mutated streams in random chunks.

    fuzz_splitter.py SECONDS [SEED]

However a stream is cut, the documents found are those of the whole stream; nothing of it is lost,
and what is found can be passed to the reader, which raises nothing.
"""

import pathlib
import plistlib
import random
import re
import sys
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "python"))
from qnrescue.documents import DocumentSplitter, parse_document
from qnrescue.events import Event

END = b"</plist>"
PIECES = [END, b"</plist", b"<plist>", b"\n\n", b"\r\n", b"\0", b"\xff", b"&lt;/plist&gt;", b"<!--",
          b"]]>", b"<?xml", b"<!DOCTYPE x [<!ENTITY a 'aaaa'>]>", b"&a;", b"<dict>" * 50,
          b"<array>" * 2000]


def make_stream(choice):
    values = [[], True, "</plist>", "Größe 漢字 😀\n", {"Status": "x", "Operation": 1, "Progress": 2},
              {"Error": {"Code": 1}}, ["0" * 16] * choice.randrange(50), bytes(range(256))]
    types = ["DeviceList", "DeviceInfo", "CommandSuccess", "RestoreStatus", "InternalError",
             "</plist>", ""]
    return b"\n".join(
        plistlib.dumps({"Type": choice.choice(types), "Value": choice.choice(values)})
        for _ in range(choice.randrange(1, 6)))


def mutate(stream, choice):
    text = bytearray(stream)
    for _ in range(choice.randrange(6)):
        at = choice.randrange(len(text) + 1)
        length = choice.choice((0, 1, 1, 8, 100))
        text[at : at + length] = choice.choice((b"", choice.choice(PIECES), choice.randbytes(3)))
    return bytes(text)


def split(chunks):
    splitter = DocumentSplitter()
    documents = [document for chunk in chunks for document in splitter.feed(chunk)]
    return documents, splitter.pending


def cut(stream, choice):
    most = choice.choice((1, 3, 60))
    cuts = sorted(choice.randrange(len(stream) + 1) for _ in range(choice.randrange(most + 1)))
    return [stream[start:end] for start, end in zip([0, *cuts], [*cuts, len(stream)])]


def documents_of(stream):
    """Returns the documents of a whole stream, and what follows them."""
    documents = []
    stream = stream.lstrip()
    while end := re.search(rb"</plist>|(?!\A)(?=<\?xml)", stream):
        documents.append(stream[:end.end()])
        stream = stream[end.end():].lstrip()
    return documents, stream


def check(stream, choice):
    expected = documents_of(stream)
    chunks = cut(stream, choice)
    assert split(chunks) == expected, chunks
    for document in expected[0]:
        assert isinstance(parse_document(document), Event), document


def main():
    seconds = float(sys.argv[1])
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    choice = random.Random(seed)
    end = time.monotonic() + seconds
    runs = 0
    while time.monotonic() < end:
        check(mutate(make_stream(choice), choice), choice)
        runs += 1
    print(f"Done {runs} runs in {seconds:g} seconds, seed {seed}")


if __name__ == "__main__":
    main()
