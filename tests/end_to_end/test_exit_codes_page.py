"""docs/exit-codes.md: each command in it has the status and the texts that it is listed with."""

import re
import unittest
from concurrent.futures import ThreadPoolExecutor

from harness import DESCRIPTIONS, ToolTest, side_by_side, split_documents
from pages import ROOT, Session, code, sections, tables

load_tests = side_by_side

PAGE = (ROOT / "docs" / "exit-codes.md").read_text(encoding="utf-8")
SECTIONS = sections(PAGE)


def situations():
    """Code, reason, scenario ("" for none) and command of each row that has a command."""
    for heading, text in SECTIONS.items():
        number = re.match(r"Code (\d):", heading)
        for reason, _, shown_by in (tables(text) or [[]])[0] if number else ():
            if shown_by:
                *scenario, command = re.findall(r"`(.*?)`", shown_by)
                yield int(number[1]), code(reason), "".join(scenario), command


class ExitCodesPage(ToolTest):
    def test_descriptions(self):
        rows = tables(SECTIONS["Exit statuses and error codes"])[0]
        self.assertEqual(DESCRIPTIONS, {int(row[0]): code(row[1]) for row in rows})

    def test_every_code_has_a_section(self):
        self.assertEqual(set(range(1, 9)), {row[0] for row in situations()})

    def test_situations(self):
        with ThreadPoolExecutor() as pool:
            for (number, reason, _, command), session in zip(
                    situations(), pool.map(self.play, situations())):
                with self.subTest(command):
                    self.assertEqual(0 if number == 7 else number, session.status, session.stdout)
                    self.assert_error(split_documents(session.stdout)[-1], number, reason)

    def play(self, situation):
        """Returns the session that shows the situation."""
        *_, scenario, command = situation
        session = Session(self.new_folder())
        (session.folder / "empty.plist").touch()
        path = rf"simulator\scenarios\{scenario}" if scenario else ""
        session.run(f"set MOBILEDEVICE_SIMULATOR_SCENARIO={path}")
        session.run(command)
        return session

    def test_a_library_error(self):
        session = Session(self.new_folder())
        session.run(r"set MOBILEDEVICE_SIMULATOR_SCENARIO=simulator\scenarios\library-fails.plist")
        session.run("qnrescue --list-devices")
        first, second = split_documents(session.stdout)
        self.assertEqual((1, first), (session.status, second))
        self.assertEqual("AMRestoreErrorDomain", first.value["Domain"])

    def test_a_faulty_scenario(self):
        session = Session(self.new_folder())
        session.run("set MOBILEDEVICE_SIMULATOR_SCENARIO=update.ipsw")
        output = session.run("qnrescue --list-devices")
        self.assertIn("| 70 | the simulator |", SECTIONS["Other statuses"])
        self.assertEqual((70, b""), (session.status, session.stdout))
        self.assertIn("update.ipsw", output)


if __name__ == "__main__":
    unittest.main()
