import unittest


class MustFail(unittest.TestCase):
    def test_failure(self):
        self.fail("as it has to")
