"""Names in C++ have no prefixes and no suffixes: no `m_name`, no `name_`. clang-tidy, which checks
the rest of the rule, takes these for names in lower_snake_case."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCE_SUFFIXES = (".cpp", ".hpp", ".h", ".in")
BUILT = ROOT / "build"

COMMENT_OR_TEXT = re.compile(r'//[^\n]*|"(?:\\.|[^"\\\n])*"')
# ## in a macro joins what is before it with a name.
AFFIXED = re.compile(r"\b(?:[gkmps]_\w+|[a-z]\w*_(?!\w|##))")


def affixed_names(text):
    """Returns the names with a prefix or a suffix in a C++ source."""
    return AFFIXED.findall(COMMENT_OR_TEXT.sub("", text))


class Names(unittest.TestCase):
    def test_prefixes_and_suffixes_are_found(self):
        self.assertEqual(["m_first", "second_"], affixed_names(
            'int m_first = second_; // m_third\nauto name = text("fourth_"); run_##name();'))

    def test_no_source_has_them(self):
        sources = [path for path in ROOT.rglob("*")
                   if path.suffix in SOURCE_SUFFIXES and BUILT not in path.parents]
        self.assertTrue(sources)
        found = {path.relative_to(ROOT).as_posix(): affixed_names(path.read_text(encoding="utf-8"))
                 for path in sources}
        self.assertEqual({}, {path: names for path, names in found.items() if names})


if __name__ == "__main__":
    unittest.main()
