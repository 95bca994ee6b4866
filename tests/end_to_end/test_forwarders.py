"""libdevforwardmin.dll forwards what the tool needs, and no more: the launcher demands every name of
the platform's libraries, and one that nobody calls would be one more reason to refuse them."""

import pathlib
import unittest

import pe
from harness import BIN

DEFINITIONS = pathlib.Path(__file__).parents[2] / "platform/libdevforwardmin/libdevforwardmin.def"


def image(name):
    return pe.Image((BIN / name).read_bytes())


class Names(unittest.TestCase):
    def test_are_those_that_the_tool_imports(self):
        imported = image("libqnrescuelib.dll").imported_from("libdevforwardmin.dll")
        self.assertIn("CFRelease", imported)
        self.assertEqual(sorted(imported), image("libdevforwardmin.dll").exported_functions)

    def test_each_leads_to_its_library(self):
        for line in DEFINITIONS.read_text().splitlines():
            if " = " in line:
                name, _, target = line.split()[:3]
                library = "MobileDevice" if name.startswith("AM") else "CoreFoundation"
                self.assertEqual(f"{library}.{name}", target)


if __name__ == "__main__":
    unittest.main()
