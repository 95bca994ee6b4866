"""The simulated CoreFoundation exports what platform/CoreFoundation.h declares, and no more."""

import pathlib
import re
import unittest

import pe
from harness import BIN

HEADER = pathlib.Path(__file__).parents[2] / "platform/CoreFoundation.h"


class Extent(unittest.TestCase):
    def test_is_that_of_the_header(self):
        declared = re.findall(r"^CF_EXPORT [^;(]*?(\w+)[;(]", HEADER.read_text(), re.MULTILINE)
        self.assertIn("CFRelease", declared)
        library = pe.Image((BIN / "CoreFoundation.dll").read_bytes())
        self.assertEqual(sorted(declared), library.exported_functions)


if __name__ == "__main__":
    unittest.main()
