"""The README names every option, no page has a link that leads nowhere, and the sample of a scenario
can be played."""

import re
import unittest

from harness import ToolTest
from pages import PAGES, ROOT, blocks, code, sections, tables

README = (ROOT / "README.md").read_text(encoding="utf-8")


class Pages(ToolTest):
    def test_options(self):
        run = self.run_tool("--help", scenario={}, status=0)
        shown = re.findall(r"^  (--[a-z-]+)", run.stderr.decode(), re.MULTILINE)
        listed = [code(row[0]).split()[0] for row in tables(sections(README)["Use it"])[0]]
        self.assertEqual(sorted(shown), sorted(listed))

    def test_links(self):
        for path in (*PAGES, ROOT / "CONTRIBUTING.md"):
            for target in re.findall(r"\]\(([^)#:]+)", path.read_text(encoding="utf-8")):
                self.assertTrue((path.parent / target).exists(), f"{path.name}: {target}")

    def test_sample_of_a_scenario(self):
        (sample,) = blocks((ROOT / "docs" / "simulator.md").read_text(encoding="utf-8"), "xml")
        path = self.new_folder() / "scenario.plist"
        path.write_text(sample, encoding="utf-8")
        run = self.run_tool("--list-devices", "--detect-timeout", "1", scenario=path, status=0)
        self.assertEqual([["000C1A2B3C4D5E6F"]], run.values("DeviceList"))


if __name__ == "__main__":
    unittest.main()
