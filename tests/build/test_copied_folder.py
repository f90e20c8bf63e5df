"""The shipped files run from any folder."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import places


class CopiedFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velto copied ")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        for name in places.SHIPPED:
            shutil.copy(places.BIN / name, self.folder)

    def run_host(self, *arguments):
        environment = dict(os.environ, WINEPREFIX=str(places.BUILD / "wine"), WINEDEBUG="-all", DISPLAY="",
                           WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe=",
                           VELTO_LOG_FILE="Z:" + str(self.folder / "module.log").replace("/", "\\"))
        return subprocess.run(["wine", str(self.folder / "velto-host.exe"), *arguments], cwd="/",
                              env=environment, capture_output=True, text=True, timeout=60)

    def test_copied_host_starts(self):
        result = self.run_host("--help")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("play", result.stdout)

    def test_copied_host_loads_copied_module(self):
        result = self.run_host("capabilities")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("speaker1", result.stdout)

    def test_copied_module_does_not_load_without_ffmpeg(self):
        # Without this check, the tests above could pass with libraries from outside the folder.
        (self.folder / "swresample-4.dll").unlink()
        self.assertNotEqual(self.run_host("capabilities").returncode, 0)


if __name__ == "__main__":
    unittest.main()
