"""The examples in JavaScript, with both readers of property lists, and in C#. Needs Node.js, what
scripts/node-modules installs, and Mono."""

import json
import pathlib
import plistlib
import subprocess
import tempfile
import unittest

from pages import ROOT
from samples import SampleTest

RECOVERY = "001E2D4C0A91C026"
MODULES = ROOT / "build" / "node" / "node_modules"
JAVASCRIPT = ROOT / "examples" / "javascript" / "qnrescue.mjs"
CSHARP = ROOT / "examples" / "csharp" / "qnrescue.cs"
READERS = ("plist", "fast-plist")
# Characters beyond ASCII, and what is special in XML.
NAME = "größer <&> \U0001f34f 名前"


class Examples(SampleTest):
    """What each of the examples has to do."""

    def setUp(self):
        super().setUp()
        self.scenario = self.new_folder() / "scenario.plist"
        self.scenario.write_bytes(plistlib.dumps({
            "TimeScale": 0,
            "Devices": [{"ECID": RECOVERY, "ProductString": NAME, "SerialNumber": "a\x01b"}]},
            fmt=plistlib.FMT_BINARY))


class JavaScript(Examples):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        folder = tempfile.TemporaryDirectory(prefix="javascript.")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        (cls.folder / "node_modules").symlink_to(MODULES)
        text = JAVASCRIPT.read_text("utf-8")
        for reader in READERS:
            assert 'from "plist"; // or from "fast-plist"' in text
            (cls.folder / f"{reader}.mjs").write_text(
                text.replace('from "plist";', f'from "{reader}";'), "utf-8")

    def documents(self, reader, *arguments, **how):
        """Returns the types and the values that the example prints."""
        lines = self.run_sample("node", self.folder / f"{reader}.mjs", *arguments,
                                scenario=self.scenario, **how)
        pairs = [line.partition(" ") for line in lines]
        return [(kind, json.loads(value)) for kind, _, value in pairs]

    def test_list(self):
        for reader in READERS:
            self.assertEqual([("DeviceList", [RECOVERY])],
                             self.documents(reader, "--list-devices", "--detect-timeout", "1"))

    def test_texts(self):
        for reader in READERS:
            ((kind, value),) = self.documents(reader, "--device-info", "--ecid", RECOVERY)
            self.assertEqual(("DeviceInfo", NAME), (kind, value["ProductString"]))

    def test_each_document_of_a_restore(self):
        for reader in READERS:
            documents = self.documents(reader, "--restore", "update.ipsw", "--ecid", RECOVERY)
            self.assertEqual({"RestoreStatus"}, {kind for kind, _ in documents})
            self.assertGreater(len(documents), 5)
            self.assertEqual({"Operation": 0, "Progress": 100, "Status": "Successful"},
                             documents[-1][1])

    def test_error(self):
        for reader in READERS:
            ((kind, value),) = self.documents(reader, "--exit-recovery", status=3)
            self.assertEqual(("InternalError", 3), (kind, value["Code"]))

    def test_why_documents_are_cut(self):
        """What the comment in the example says of the readers."""
        several = "\n".join(plistlib.dumps({"N": number}).decode() for number in (1, 2, 3))
        said = []
        for reader in READERS:
            program = f'import {{ parse }} from "{reader}"; console.log(JSON.stringify(parse(' \
                      f'{json.dumps(several)})))'
            path = self.folder / f"several-{reader}.mjs"
            path.write_text(program)
            run = subprocess.run(["node", path], text=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
            said.append((run.returncode == 0, run.stdout))
        self.assertEqual([(False, ""), (True, '{"N":3}\n')], said)


class CSharp(Examples):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        folder = tempfile.TemporaryDirectory(prefix="csharp.")
        cls.addClassCleanup(folder.cleanup)
        cls.program = pathlib.Path(folder.name) / "qnrescue-example.exe"
        subprocess.run(["mcs", "-warnaserror", "-r:System.Xml.Linq", f"-out:{cls.program}", CSHARP],
                       check=True)

    def documents(self, *arguments, **how):
        """Returns the lines that the example prints."""
        return self.run_sample("mono", self.program, *arguments, scenario=self.scenario, **how)

    def test_list(self):
        self.assertEqual([f"DeviceList: {RECOVERY}"],
                         self.documents("--list-devices", "--detect-timeout", "1"))

    def test_texts(self):
        (line,) = self.documents("--device-info", "--ecid", RECOVERY)
        self.assertIn(f"ProductString={NAME}", line)

    def test_each_document_of_a_restore(self):
        lines = self.documents("--restore", "update.ipsw", "--ecid", RECOVERY)
        self.assertGreater(len(lines), 5)
        self.assertEqual("RestoreStatus: Operation=0, Progress=100, Status=Successful", lines[-1])

    def test_arguments_with_blanks_and_quotes(self):
        (line,) = self.documents("--restore", 'a "b" c\\', "--ecid", "x y", status=2)
        self.assertIn("Code=2", line)
        (line,) = self.documents("--restore-plist", 'no "such" file\\', "--ecid", RECOVERY,
                                 status=8)
        self.assertIn("""Cannot open file 'no "such" file\\' - """, line)


if __name__ == "__main__":
    unittest.main()
