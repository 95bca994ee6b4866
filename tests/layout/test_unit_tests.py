"""The path of a unit test is that of its source: tests/unit/FOLDER/test_NAME.cpp tests FOLDER/NAME.
One that tests several sources is named for its subject, is listed here, and says in its first line
what it is about."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TESTS = ROOT / "tests" / "unit"
SOURCE_SUFFIXES = (".cpp", ".hpp", ".h")

# Each with the reason why no single source has its name.
SUBJECTS = {
    "QNRescue/test_commands.cpp": "the dispatcher and the notifier carry out a command together",
    "QNRescue/test_deep_nesting.cpp": "every function that follows nested values has a limited stack",
    "QNRescue/test_device_calls.cpp": "the linker replaces functions of the platform",
    "QNRescue/test_fall_back_texts.cpp": "replaces the texts that others fall back from",
    "QNRescue/test_inheritance.cpp": "starts another process, so is a separate program",
    "QNRescue/test_notifier_threads.cpp": "several threads call the notifier and the output",
    "QNRescue/test_out_of_memory.cpp": "every function of the tool may run out of memory",
    "QNRescue/test_output_allocation.cpp": "replaces the operators that allocate",
    "QNRescue/test_platform_failures.cpp": "the platform fails everywhere",
    "QNRescue/test_unusual_platform_values.cpp": "the linker replaces functions of the platform",
    "recorder/test_recorded_runs.cpp": "the tool, the recorder and the simulator run together",
    "recorder/test_slow_library.cpp": "replaces the device library by one that blocks",
    "support/file/test_missing_handles.cpp": "replaces the function that opens files",
    "support/file/test_opening.cpp": "files of both kinds open and close alike",
    "support/win/test_error_texts.cpp": "the categories share the texts of the system",
}


def has_source(test):
    """Returns whether the mirrored folder has the source that the test is named for."""
    folder = ROOT / test.parent.relative_to(TESTS)
    return any((folder / (test.stem.removeprefix("test_") + suffix)).is_file()
               for suffix in SOURCE_SUFFIXES)


def path_of(file):
    return file.relative_to(TESTS).as_posix()


class UnitTests(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.files = [file for file in TESTS.rglob("*") if file.suffix in SOURCE_SUFFIXES]
        self.tests = [file for file in self.files if file.name.startswith("test_")]

    def test_every_test_is_named_for_its_source_or_listed(self):
        self.assertTrue(self.tests)
        self.assertEqual(sorted(SUBJECTS),
                         sorted(path_of(test) for test in self.tests if not has_source(test)))

    def test_listed_tests_say_what_they_are_about(self):
        for subject in SUBJECTS:
            with self.subTest(subject):
                first = (TESTS / subject).read_text(encoding="utf-8").partition("\n")[0]
                self.assertRegex(first, r"^// \w")

    def test_tests_alone_are_called_test(self):
        holding = [file for file in self.files
                   if re.search(r"^TEST(_[FP])?\(", file.read_text(encoding="utf-8"), re.MULTILINE)]
        self.assertEqual(sorted(map(path_of, self.tests)), sorted(map(path_of, holding)))


if __name__ == "__main__":
    unittest.main()
