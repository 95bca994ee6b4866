"""Programs that are signed before they are packed, with a certificate that the test makes."""

import pathlib
import shutil
import subprocess
import unittest
import zipfile

import pe
from build_folder import make_release, module_folder, pack
from harness import RUNNER, ToolTest

SIGNED = (".exe", ".dll")

SIGN = """\
#!/bin/sh
# Signs the file that is the last argument.
echo "$2" >>"$1/log"
osslsigncode sign -certs "$1/certificate.pem" -key "$1/key.pem" -h sha256 -n QNRescue \\
    -in "$2" -out "$2.signed" >/dev/null && mv "$2.signed" "$2"
"""


def setUpModule():
    if not RUNNER:
        raise unittest.SkipTest("signs with a shell script")
    Signing.make(module_folder())


class Signing(ToolTest):
    @classmethod
    def make(cls, folder):
        cls.certificate = folder / "certificate.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                        "-subj", "/CN=QNRescue test", "-addext", "extendedKeyUsage=codeSigning",
                        "-addext", "keyUsage=digitalSignature",
                        "-keyout", folder / "key.pem", "-out", cls.certificate],
                       check=True, stderr=subprocess.DEVNULL)
        script = folder / "sign with a certificate"
        script.write_text(SIGN)
        script.chmod(0o755)
        cls.command = f"'{script}' '{folder}'"
        cls.zip = pack(folder, QNRESCUE_SIGN=cls.command)
        cls.release = folder / "release"
        make_release(cls.zip, cls.release, QNRESCUE_SIGN=cls.command)
        cls.log = (folder / "log").read_text().splitlines()
        with zipfile.ZipFile(cls.zip) as archive:
            archive.extractall(folder / "unpacked")
        cls.files = [path for path in (folder / "unpacked").rglob("*") if path.suffix in SIGNED]

    def verified(self, file):
        return subprocess.run(["osslsigncode", "verify", "-CAfile", self.certificate, "-in", file],
                              check=False, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL).returncode == 0


class Signatures(Signing):
    def test_each_program_and_library_has_one(self):
        self.assertIn("qnrescue.exe", {file.name for file in self.files})
        for file in self.files:
            self.assertTrue(self.verified(file), file)
            self.assertGreater(pe.Image(file.read_bytes()).directory_size(pe.SECURITY), 0, file)

    def test_the_installer_package_has_one(self):
        (package,) = self.release.glob("*.msi")
        self.assertTrue(self.verified(package))

    def test_the_installer_package_has_the_signed_files(self):
        (package,) = self.release.glob("*.msi")
        extracted = self.new_folder()
        subprocess.run(["msiextract", "--directory", extracted, package], check=True,
                       stdout=subprocess.DEVNULL)
        files = [path for path in extracted.rglob("*") if path.suffix in SIGNED]
        self.assertEqual(len(self.files), len(files))
        for file in files:
            self.assertTrue(self.verified(file), file)

    def test_a_changed_file_is_not_verified(self):
        file = pathlib.Path(shutil.copy(self.files[0], self.new_folder()))
        content = bytearray(file.read_bytes())
        content[0x500] ^= 1
        file.write_bytes(content)
        self.assertFalse(self.verified(file))

    def test_files_with_the_same_content_are_signed_once(self):
        contents = {file.read_bytes() for file in self.files}
        self.assertLess(len(contents), len(self.files))
        self.assertEqual(len(contents) + 1, len(self.log))  # one is the installer package


class Refusal(Signing):
    def refusal(self, command):
        """What packing says when the command cannot sign."""
        with self.assertRaises(AssertionError) as failure:
            pack(self.new_folder(), QNRESCUE_SIGN=command)
        return str(failure.exception)

    def test_command_that_fails(self):
        self.assertIn("sign.py: false ended with status 1", self.refusal("false"))

    def test_command_that_does_nothing(self):
        self.assertIn("sign.py: true did not change", self.refusal("true"))

    def test_without_a_command_nothing_is_signed(self):
        with zipfile.ZipFile(pack(self.new_folder(), QNRESCUE_SIGN="")) as archive:
            for name in archive.namelist():
                if name.endswith(SIGNED):
                    image = pe.Image(archive.read(name))
                    self.assertEqual(0, image.directory_size(pe.SECURITY), name)


if __name__ == "__main__":
    unittest.main()
