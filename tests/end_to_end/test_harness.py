"""The harness itself: it must refuse output that is not made of whole documents."""

import plistlib
import unittest

from harness import OutputFault, split_documents, split_lines

DOCUMENT = plistlib.dumps({"Type": "DeviceList", "Value": ["0000000000000001"]})


class SplitDocuments(unittest.TestCase):
    def assert_refused(self, output):
        with self.assertRaises(OutputFault):
            split_documents(output)

    def test_no_output(self):
        self.assertEqual([], split_documents(b""))

    def test_two_documents(self):
        documents = split_documents(2 * (DOCUMENT + b"\n"))
        self.assertEqual(["DeviceList", "DeviceList"], [each.type for each in documents])
        self.assertEqual(["0000000000000001"], documents[1].value)
        self.assertEqual(DOCUMENT, documents[1].text)

    def test_missing_line_feed(self):
        self.assert_refused(DOCUMENT)
        self.assert_refused(DOCUMENT + DOCUMENT + b"\n")

    def test_second_line_feed(self):
        self.assert_refused(DOCUMENT + b"\n\n")

    def test_text_around_documents(self):
        self.assert_refused(b"x" + DOCUMENT + b"\n")
        self.assert_refused(DOCUMENT + b"\nx")
        self.assert_refused(b"\n" + DOCUMENT + b"\n")

    def test_broken_off(self):
        self.assert_refused(DOCUMENT[:-20])
        self.assert_refused(DOCUMENT + b"\n" + DOCUMENT[:30])

    def test_documents_written_into_each_other(self):
        middle = len(DOCUMENT) // 2
        mixed = DOCUMENT[:middle] + DOCUMENT + b"\n" + DOCUMENT[middle:] + b"\n"
        with self.assertRaises(Exception):
            split_documents(mixed)

    def test_carriage_returns(self):
        self.assert_refused((DOCUMENT + b"\n").replace(b"\n", b"\r\n"))

    def test_other_roots(self):
        for root in ({"Type": "X"}, {"Type": "X", "Value": 1, "More": 2}, {"Type": 1, "Value": 1}):
            self.assert_refused(plistlib.dumps(root) + b"\n")
        self.assert_refused(plistlib.dumps(["Type", "Value"]) + b"\n")


class SplitLines(unittest.TestCase):
    def test_lines(self):
        self.assertEqual([], split_lines(b""))
        self.assertEqual(["a", "", "b"], split_lines(b"a\n\nb\n"))

    def test_faults(self):
        for text in (b"a", b"a\nb", b"a\r\n"):
            with self.assertRaises(OutputFault):
                split_lines(text)


if __name__ == "__main__":
    unittest.main()
