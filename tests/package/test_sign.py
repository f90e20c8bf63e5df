"""scripts/package --sign: each binary has a signature that verifies."""

import subprocess
import unittest

import packages
import package_run


def certificate(folder):
    packages.run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=velto test",
                 "-addext", "extendedKeyUsage=codeSigning", "-keyout", folder / "key.pem", "-out", folder / "cert.pem")


class Signing(packages.Unpacked):
    def setUp(self):
        certificate(self.root)
        self.bin = self.package / "bin"

    def verifies(self, path):
        result = subprocess.run(["osslsigncode", "verify", "-CAfile", self.root / "cert.pem", "-in", path],
                                capture_output=True, text=True)
        return result.returncode == 0, result.stdout

    def command(self):
        script = self.root / "sign it.sh"
        script.write_text(f'#!/bin/sh\nosslsigncode sign -certs "{self.root}/cert.pem" -key "{self.root}/key.pem" -h sha256 '
                          '-in "$1" -out "$1.signed" && mv "$1.signed" "$1"\n')
        script.chmod(0o755)
        return f'"{script}"'

    def test_every_binary_is_signed_and_still_runs(self):
        host = self.bin / "velto-host.exe"
        self.assertFalse(self.verifies(host)[0], "the archive under test is signed")
        package_run.sign(self.bin, self.command())
        for path in sorted(self.bin.iterdir()):
            good, output = self.verifies(path)
            self.assertTrue(good, output)
        self.assertIn("speaker1", packages.run_windows(host, "capabilities"))
        # A changed byte breaks the signature.
        data = bytearray(host.read_bytes())
        data[0x800] ^= 1
        host.write_bytes(data)
        self.assertFalse(self.verifies(host)[0])

    def test_command_that_signs_nothing_or_fails_is_an_error(self):
        with self.assertRaisesRegex(RuntimeError, "did not change"):
            package_run.sign(self.bin, "true")
        with self.assertRaisesRegex(RuntimeError, "failed"):
            package_run.sign(self.bin, "false")


if __name__ == "__main__":
    unittest.main()
