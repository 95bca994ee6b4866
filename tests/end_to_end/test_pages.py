"""The README names every option, links lead somewhere, the simulator has the devices of the
examples, and the sample of a scenario can be played."""

import re
import unittest

from harness import ToolTest, side_by_side
from pages import PAGES, ROOT, blocks, code, sections, tables

load_tests = side_by_side

README = (ROOT / "README.md").read_text(encoding="utf-8")
BUILT_IN = ROOT / "simulator" / "MobileDevice" / "built_in_scenario.cpp"
NOBODY = "0123456789ABCDEF"  # the pages' device that is not attached

GUIDES = [*PAGES, ROOT / "CONTRIBUTING.md", *sorted((ROOT / "examples").rglob("*.md"))]


def read(path):
    return path.read_text(encoding="utf-8")


def ecids(text):
    return set(re.findall(r"\b[0-9A-F]{16}\b", text))


class Pages(ToolTest):
    def test_options(self):
        run = self.run_tool("--help", scenario={}, status=0)
        shown = re.findall(r"^  (--[a-z-]+)", run.stderr.decode(), re.MULTILINE)
        listed = [code(row[0]).split()[0] for row in tables(sections(README)["Use it"])[0]]
        self.assertEqual(sorted(shown), sorted(listed))

    def test_links(self):
        for path in GUIDES:
            for target in re.findall(r"\]\((?!https?:)([^)#]+)", read(path)):
                self.assertTrue((path.parent / target).exists(), f"{path.name}: {target}")

    def test_ecids_are_those_of_simulated_devices(self):
        scenarios = [BUILT_IN, *(ROOT / "simulator" / "scenarios").glob("*.plist")]
        simulated = {NOBODY}.union(*(ecids(read(path)) for path in scenarios))
        self.assertLessEqual(ecids(README), ecids(read(BUILT_IN)))
        for path in GUIDES:
            text = read(path)
            own_scenarios = ecids("".join(blocks(text, "xml")))
            self.assertLessEqual(ecids(text), simulated | own_scenarios, path.name)

    def test_sample_of_a_scenario(self):
        (sample,) = blocks(read(ROOT / "docs" / "simulator.md"), "xml")
        path = self.new_folder() / "scenario.plist"
        path.write_text(sample, encoding="utf-8")
        run = self.run_tool("--list-devices", "--detect-timeout", "1", scenario=path, status=0)
        self.assertEqual([["000C1A2B3C4D5E6F"]], run.values("DeviceList"))


if __name__ == "__main__":
    unittest.main()
