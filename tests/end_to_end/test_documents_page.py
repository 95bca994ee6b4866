"""docs/documents.md says what the documents hold, and every console session is real output.

With --update the sessions are written anew (see scripts/update-pages)."""

import sys
import tempfile
import unittest

from harness import COMPLETE, ECID, ToolTest, device, report, side_by_side
from pages import PAGES, ROOT, code, refreshed, sections, tables

load_tests = side_by_side

PAGE = (ROOT / "docs" / "documents.md").read_text(encoding="utf-8")
TYPES = [code(row[0]) for row in tables(sections(PAGE)["Documents"])[0]]

BUILT_IN = "001E2D4C0A91C026", "000A35D83C60802E", "0004590E11D2001C"
DOMAIN = {"Domain": "AMRestoreErrorDomain", "Code": 17}
FAILED = report(201, 4, "Failed")
FAILED["Status"]["Error"] = {"$type": "error", **DOMAIN}


def type_of(value):
    """What the page calls the type of this value."""
    if value is True:
        return "true"
    if isinstance(value, list) and all(isinstance(each, str) for each in value):
        return "array of strings"
    return {int: "integer", str: "string", dict: "dictionary"}[type(value)]


class Sessions(ToolTest):
    def test_they_are_real(self):
        for path in PAGES:
            with self.subTest(path.name):
                page = path.read_text(encoding="utf-8")
                self.assertEqual(page, refreshed(page, self.new_folder))

    def test_a_changed_byte_is_noticed(self):
        page = PAGE.partition("## DeviceInfo")[0]
        changed = page.replace("<string>DeviceList", "<string>devicelist")
        self.assertNotEqual(page, changed)
        self.assertEqual(page, refreshed(changed, self.new_folder))


class Keys(ToolTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.documents = []

    def collect(self, *arguments, **how):
        documents = self.run_tool(*arguments, **how).documents
        self.documents += documents
        return documents

    def fail_to_register(self, **error):
        self.collect("--list-devices",
                     scenario={"Failures": {"RegisterForNotifications": {**DOMAIN, **error}}})

    def run_everything(self):
        """Runs that between them print all that the tool and the simulator have to say."""
        self.collect("--list-devices", "--detect-timeout", "1")
        self.collect("--list-devices", "--detect-timeout", "0", scenario={})
        for ecid in BUILT_IN:
            self.collect("--device-info", "--ecid", ecid)
        self.collect("--device-info", "--ecid", ECID, scenario={"Devices": [device()]})
        for command in ("--exit-recovery", "--no-exit-recovery"):
            self.collect(command, "--ecid", BUILT_IN[0])
            self.collect(command, "--ecid", BUILT_IN[1])
        self.collect("--frobnicate")
        self.fail_to_register()
        self.fail_to_register(Description="text", FailureReason="reason")
        restore = ("--restore", self.make_bundle(), "--ecid", ECID)
        steps = {"Devices": [device()], "TimeScale": 0}
        self.collect(*restore, scenario=steps)
        self.collect(*restore, "--enter-restore-mode", scenario=steps)
        self.collect("--restore", "missing.ipsw", "--ecid", ECID, "--restore-timeout", "1",
                     scenario=steps)
        self.collect(*restore, scenario={
            "Devices": [device(RestoreReports=[FAILED, COMPLETE])], "TimeScale": 0})

    def check(self, table, values):
        """The rows are the keys of these values, with their types; one that does not always come
        is missing somewhere."""
        rows = {code(key): (kind, comes) for key, kind, comes, *_ in table}
        self.assertEqual(set(rows), {key for value in values for key in value})
        for key, (kind, comes) in rows.items():
            with self.subTest(key):
                found = [value[key] for value in values if key in value]
                self.assertEqual({kind}, {type_of(each) for each in found})
                self.assertEqual(comes == "always", len(found) == len(values))

    def test_tables(self):
        self.run_everything()
        values = {name: [each.value for each in self.documents if each.type == name]
                  for name in TYPES}
        self.assertEqual(set(TYPES), {each.type for each in self.documents})
        texts = sections(PAGE)
        for name, kind, *_ in tables(texts["Documents"])[0]:
            with self.subTest(name):
                found = values[code(name)]
                self.assertEqual({kind}, {type_of(each) for each in found})
                if kind == "dictionary":
                    self.check(tables(texts[code(name)])[0], found)
        errors = [each["Error"] for each in values["RestoreStatus"] if "Error" in each]
        self.assertTrue(errors)
        self.assertLessEqual({key for each in errors for key in each},
                             {code(row[0]) for row in tables(texts["InternalError"])[0]})


def update():
    def new_folder():
        folders.append(tempfile.TemporaryDirectory())
        return ROOT.__class__(folders[-1].name)

    folders = []
    for number, path in enumerate(PAGES, 1):
        print(f"update-pages: page {number} of {len(PAGES)}: {path.name}", file=sys.stderr)
        page = path.read_text(encoding="utf-8")
        path.write_text(refreshed(page, new_folder), encoding="utf-8")
    for folder in folders:
        folder.cleanup()


if __name__ == "__main__":
    if sys.argv[1:] == ["--update"]:
        update()
    else:
        unittest.main()
