"""The runner of mutants itself, on a small project: what is not noticed must not count
as noticed. And the patches of this folder must be readable and apply."""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from mutant import PatchFault
from mutate import find_mutants
from working_copy import WorkingCopy

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]

PROJECT = {
    "CMakePresets.json": """{
  "version": 6,
  "configurePresets": [{
    "name": "native", "generator": "Ninja", "binaryDir": "${sourceDir}/build/${presetName}"
  }],
  "buildPresets": [{ "name": "native", "configurePreset": "native" }]
}
""",
    "CMakeLists.txt": """cmake_minimum_required(VERSION 3.25)
project(answers LANGUAGES CXX)
find_package(GTest REQUIRED)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
add_library(answer answer.cpp)
foreach(name unit_answer unit_wrong)
  add_executable(${name} ${name}.cpp)
  target_link_libraries(${name} PRIVATE answer GTest::gtest_main)
endforeach()
""",
    "answer.cpp": """#include <cstdlib>

// The answer.
int answer() {
    return 42;
}
""",
    "unit_answer.cpp": """#include <gtest/gtest.h>

int answer();

TEST(Answer, Is42) {
    EXPECT_EQ(answer(), 42);
}

TEST(Other, Passes) {
    EXPECT_NE(answer(), 0);
}
""",
    "unit_wrong.cpp": """#include <gtest/gtest.h>

int answer();

TEST(Wrong, FailsAnyway) {
    EXPECT_EQ(answer(), 0);
}
""",
}

# What becomes of the line `return 42;`; without one the comment changes.
WRONG = "    return 41;"
ENDS = "    std::abort();"
HANGS = "    for (;;) {}"
NO_CODE = "    return 4 2;"


def patch_of(line=None, headers="", tests="native unit_answer", breaks="the answer"):
    if line:
        at, before, old, new, after = 4, "int answer() {", "    return 42;", line, "}"
    else:
        at, before, old, new, after = 2, "", "// The answer.", "// An answer.", "int answer() {"
    return (f"Breaks: {breaks}\nTests: {tests}\n{headers}--- a/answer.cpp\n+++ b/answer.cpp\n"
            f"@@ -{at},3 +{at},3 @@\n {before}\n-{old}\n+{new}\n {after}\n")


class Project(unittest.TestCase):
    """One project for all tests, since the first build takes longest."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="mutate.")
        cls.addClassCleanup(folder.cleanup)
        cls.root = pathlib.Path(folder.name)
        for name, text in {**PROJECT, ".gitignore": "/build/\n"}.items():
            (cls.root / name).write_text(text)
        cls.patches = cls.root / "tests" / "mutants"
        cls.patches.mkdir(parents=True)
        subprocess.run(["git", "init", "--quiet", cls.root], check=True)

    def setUp(self):
        for patch in self.patches.iterdir():
            patch.unlink()

    def mutate(self, *arguments, **texts):
        """The status, and what the table names as the killer of each mutant."""
        for name, text in texts.items():
            (self.patches / f"{name}.patch").write_text(text)
        done = subprocess.run(
            [sys.executable, "-B", HERE / "mutate.py", "--root", self.root, "--limit", "5",
             *arguments],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        rows = re.findall(r"^\| `(\w+)` \| .* \| (.+) \|$", done.stdout, re.MULTILINE)
        self.assertEqual(sorted(texts), [name for name, _ in rows], done.stderr)
        return done.returncode, dict(rows)

    def assert_error(self, text, reason):
        status, killers = self.mutate(mutant=text)
        self.assertEqual(1, status)
        self.assertIn("**error**", killers["mutant"])
        self.assertIn(reason, killers["mutant"])

    def test_a_mutant_that_is_noticed(self):
        self.assertEqual((0, {"wrong": "Answer.Is42"}), self.mutate(wrong=patch_of(WRONG)))

    def test_a_mutant_that_ends_the_program(self):
        self.assertEqual((0, {"end": "Answer.Is42 (signal 6)"}), self.mutate(end=patch_of(ENDS)))

    def test_a_mutant_that_changes_nothing_that_matters(self):
        self.assertEqual((1, {"same": "**survived**"}), self.mutate(same=patch_of()))

    def test_a_survivor_among_others(self):
        self.assertEqual((1, {"same": "**survived**", "wrong": "Answer.Is42"}),
                         self.mutate(same=patch_of(), wrong=patch_of(WRONG)))

    def test_a_survivor_with_a_reason(self):
        self.assertEqual((0, {"same": "none: it is a comment"}),
                         self.mutate(same=patch_of(headers="Survives: it is a comment\n")))

    def test_a_reason_that_does_not_hold(self):
        self.assert_error(patch_of(WRONG, "Survives: nobody asks\n"), "killed by Answer.Is42")

    def test_only_the_tests_that_are_named_count(self):
        status, killers = self.mutate(wrong=patch_of(WRONG, tests="native unit_answer Other.*"))
        self.assertEqual((1, {"wrong": "**survived**"}), (status, killers))

    def test_the_next_tests_are_asked_where_the_first_notice_nothing(self):
        text = patch_of(WRONG, "Tests: native unit_answer\n", "native unit_answer Other.*")
        self.assertEqual((0, {"wrong": "Answer.Is42"}), self.mutate(wrong=text))

    def test_a_mutant_that_hangs(self):
        self.assert_error(patch_of(HANGS), "Answer.Is42 (out of time), and no header says")

    def test_a_mutant_that_hangs_as_it_should(self):
        status, killers = self.mutate(hang=patch_of(HANGS, "Hangs: it waits for ever\n"))
        self.assertEqual(0, status)
        self.assertEqual({"hang": "timeout of Answer.Is42 (out of time)"}, killers)

    def test_a_patch_that_does_not_apply(self):
        self.assert_error(patch_of(WRONG).replace("return 42;", "return 43;"), "does not apply")
        self.assert_error(patch_of(WRONG).replace("answer.cpp", "question.cpp"), "does not apply")

    def test_a_patch_that_does_nothing(self):
        self.assert_error(patch_of("    return 42;"), "changes nothing")

    def test_a_patch_that_does_not_build(self):
        self.assert_error(patch_of(NO_CODE), "does not build")

    def test_a_patch_that_cannot_be_read(self):
        self.assert_error("Breaks: all\n", "no diff")
        self.assert_error(patch_of(WRONG).replace("Tests:", "Test:"), "not a header")
        self.assert_error(patch_of(WRONG, tests="unit_answer"), "not BUILD PROGRAM")
        self.assert_error(patch_of(WRONG, "Breaks: more\n"), "more than one")

    def test_tests_that_are_not_there(self):
        self.assert_error(patch_of(WRONG, tests="native unit_question"), "does not build")
        self.assert_error(patch_of(WRONG, tests="native unit_answer Answer.Is43"), "has no test")
        self.assert_error(patch_of(WRONG, tests="native unit_answer Answer.*:No.*"), "has no test")
        self.assert_error(patch_of(WRONG, tests="foreign unit_answer"), "no build 'foreign'")

    def test_tests_that_fail_anyway(self):
        self.assert_error(patch_of(WRONG, tests="native unit_wrong"), "fails without a mutant")

    def test_the_page_gets_the_table(self):
        page = self.root / "docs" / "notes" / "mutants.md"
        page.parent.mkdir(parents=True, exist_ok=True)
        header = "| mutant | what is broken | killed by |\n|---|---|---|\n"
        for rest in ("", "\n## Next\n\ntext\n"):
            page.write_text(f"before\n\n{header}| `former` | this | that |\n{rest}")
            self.mutate("--update", wrong=patch_of(WRONG))
            self.assertEqual(f"before\n\n{header}| `wrong` | the answer | Answer.Is42 |\n{rest}",
                             page.read_text())

    def test_no_mutant_at_all(self):
        self.assertEqual((1, {}), self.mutate())

    def test_the_sources_stay_as_they_are(self):
        self.mutate(wrong=patch_of(WRONG), broken=patch_of(NO_CODE))
        self.assertEqual(PROJECT["answer.cpp"], (self.root / "answer.cpp").read_text())


class Patches(unittest.TestCase):
    """Those of this project: quick to check, so that they are not forgotten as the sources move."""

    def test_they_are_readable(self):
        mutants, faults = find_mutants(HERE)
        self.assertEqual({}, faults)
        self.assertGreaterEqual(len(mutants), 80)

    def test_they_apply(self):
        copy = WorkingCopy(ROOT, tempfile.mkdtemp(prefix="mutate."))
        self.addCleanup(copy.remove)
        copy.refresh()
        faults = []
        for mutant in find_mutants(HERE)[0]:
            try:
                copy.apply(mutant)
            except PatchFault as fault:
                faults.append(f"{mutant.name}: {fault}")
            finally:
                copy.restore(mutant)
        self.assertEqual([], faults)

    def test_the_page_lists_them_all(self):
        page = (ROOT / "docs" / "notes" / "mutants.md").read_text(encoding="utf-8")
        rows = re.findall(r"^\| `([\w-]+/[\w-]+)` \| (.+) \| .+ \|$", page, re.MULTILINE)
        self.assertEqual(sorted((each.name, each.breaks) for each in find_mutants(HERE)[0]), rows)


if __name__ == "__main__":
    unittest.main()
