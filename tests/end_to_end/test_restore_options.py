"""The options that --restore gives to the restore, and what becomes of paths in them."""

import re
import unittest

from harness import COMPLETE, ECID, RUNNER, Process, ToolTest, report, side_by_side

load_tests = side_by_side

COMMON = {
    "AutoBootDelay": 0,
    "CreateFilesystemPartitions": True,
    "DFUFileType": "RELEASE",
    "FlashNOR": True,
    "KernelCacheType": "Release",
    "NORImageType": "production",
    "RestoreBootArgs": "rd=md0 nand-enable-reformat=1 -progress",
    "SystemImageType": "User",
    "UpdateBaseband": True,
}
PERSONALIZED, BUNDLE = "PersonalizedRestoreBundlePath", "RestoreBundlePath"


class Options(ToolTest):
    def options(self, *arguments):
        return self.restore([COMPLETE], *arguments).options

    def test_update(self):
        options = self.options("--restore", "x.ipsw")
        personalized = options.pop(PERSONALIZED)
        self.assertEqual({**COMMON, "AuthInstallRestoreBehavior": "Update",
                          "BootImageType": "Update", BUNDLE: "x.ipsw"}, options)
        self.assertRegex(personalized, r"\A.+[\\/]qnrescue\.[0-9a-f]{6}[\\/]PRB[\\/]1\Z")

    def test_erase(self):
        options = self.options("--restore", "x.ipsw", "--erase")
        del options[PERSONALIZED]
        self.assertEqual({**COMMON, "AuthInstallRestoreBehavior": "Erase",
                          "BootImageType": "UserOrInternal", BUNDLE: "x.ipsw"}, options)

    def test_scratch_locations_differ(self):
        first, second = self.options(), self.options()
        self.assertNotEqual(first[PERSONALIZED], second[PERSONALIZED])

    def test_path_arrives_with_the_same_letters(self):
        for path in (
            "a bundle with blanks.ipsw",
            " blanks around ",
            "äöü ÄÖÜ ß é",
            "漢字.ipsw",
            "😀👍🏽",
            "e\u0301 \u00e9",
            "<&>'%TEMP%$HOME^`",
            'with "quotes"',
            "C:\\folder\\file.ipsw",
            "C:/folder/file.ipsw",
            "folder with blank\\",
            "back\\\\slashes\\\"",
            "\\\\server\\share\\x.ipsw",
            "x" * 5000,
        ):
            with self.subTest(path):
                self.assertEqual(path, self.options("--restore", path)[BUNDLE])

    def test_path_after_an_equal_sign(self):
        run = self.run_tool("--restore=ä 漢字", "--ecid", ECID, status=0, scenario={
            "Devices": [{"ECID": ECID, "RestoreReports": [COMPLETE]}]})
        self.assertEqual("ä 漢字", run.options[BUNDLE])

    def test_bundle_with_other_letters_is_found(self):
        for name in ("a b.ipsw", "äöü 漢字 😀.ipsw"):
            run = self.restore(None, "--restore", str(self.make_bundle(name)))
            self.assertEqual("Successful", run.values("RestoreStatus")[-1]["Status"])

    @unittest.skipUnless(RUNNER, "a path of another system's form")
    def test_bundle_under_a_drive_letter(self):
        path = "Z:" + str(self.make_bundle("größe.ipsw")).replace("/", "\\")
        run = self.restore(None, "--restore", path)
        self.assertEqual(path, run.options[BUNDLE])
        self.assertEqual("Successful", run.values("RestoreStatus")[-1]["Status"])


class ScratchFolder(ToolTest):
    """The tool removes its scratch folder with all that the restore has put there."""

    def command(self, *words):
        """Runs a command of the Windows command processor; its exit status."""
        process = Process(["cmd", "/c", *words], self.new_folder(), {})
        self.addCleanup(process.kill)
        return process.wait().status

    def exists(self, path):
        return self.command("if", "exist", path, "(exit", "0)", "else", "(exit", "1)") == 0

    def assert_removed(self, *arguments, status, reports):
        process = self.start("--restore", "x.ipsw", "--ecid", ECID, *arguments, scenario={
            "Devices": [{"ECID": ECID, "RestoreReports": reports}]})
        process.next_document()
        options = process.content("trace.options.plist").decode()
        personalized = re.search(r"<string>(.*qnrescue\.[0-9a-f]{6}.*)</string>", options)[1]
        scratch = re.sub(r"[\\/]PRB[\\/]1\Z", "", personalized)
        self.assertEqual(0, self.command("mkdir", personalized))
        self.assertTrue(self.exists(personalized))
        self.assertTrue(self.exists(scratch))
        self.assertEqual(b"", process.content("stderr"))
        self.assertTrue(process.running())
        self.finish(process, status=status)
        self.assertFalse(self.exists(scratch))

    def test_after_a_restore(self):
        self.assert_removed(status=0, reports=[report(5, 1), {**COMPLETE, "After": 5}])

    def test_whatever_no_cleanup_says(self):
        self.assert_removed("--no-cleanup", status=0,
                            reports=[report(5, 1), {**COMPLETE, "After": 5}])

    def test_after_a_time_out(self):
        self.assert_removed("--restore-timeout", "5", status=0, reports=[report(5, 1)])


if __name__ == "__main__":
    unittest.main()
