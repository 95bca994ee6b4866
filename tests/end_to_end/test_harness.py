"""The harness itself: it refuses output that is not made of whole documents, and reports all that
happens to tests that run side by side."""

import plistlib
import threading
import unittest

from harness import OutputFault, side_by_side, split_documents, split_lines

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


class Samples(unittest.TestCase):
    """Ends of tests."""

    def succeed(self):
        pass

    def fail_here(self):
        self.fail()

    def raise_here(self):
        raise ValueError

    def skip_here(self):
        self.skipTest("")

    def fail_in_parts(self):
        for number in range(3):
            with self.subTest(number):
                self.assertEqual(1, number)


class Meeting(unittest.TestCase):
    """Tests that wait for each other."""

    MEMBERS = 2
    barrier = threading.Barrier(MEMBERS)

    def meet(self):
        self.barrier.wait(30)


class Alone(unittest.TestCase):
    """Tests that no other test of their class may run beside."""

    ONE_BY_ONE = True
    lock = threading.Lock()

    def hold(self):
        self.assertTrue(self.lock.acquire(blocking=False))
        threading.Event().wait(0.05)
        self.lock.release()


class SideBySideTests(unittest.TestCase):
    def run_tests(self, *tests):
        """Returns the result of these tests, which are nested as unittest's loader does."""
        result = unittest.TestResult()
        nested = unittest.TestSuite([unittest.TestSuite(tests)])
        side_by_side(None, nested, None).run(result)
        return result

    def test_every_end_is_reported(self):
        result = self.run_tests(*map(Samples, ("succeed", "fail_here", "raise_here", "skip_here",
                                               "fail_in_parts")))
        self.assertEqual((5, 3, 1, 1), (result.testsRun, len(result.failures), len(result.errors),
                                        len(result.skipped)))
        self.assertFalse(result.wasSuccessful())

    def test_tests_run_at_the_same_time(self):
        tests = [Meeting("meet") for _ in range(Meeting.MEMBERS)]
        self.assertTrue(self.run_tests(*tests).wasSuccessful())

    def test_some_run_one_by_one(self):
        self.assertTrue(self.run_tests(*[Alone("hold") for _ in range(5)]).wasSuccessful())


if __name__ == "__main__":
    unittest.main()
