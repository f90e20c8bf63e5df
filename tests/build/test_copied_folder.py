"""The shipped files run from any folder."""

import pathlib
import shutil
import tempfile
import unittest

import places
import wine


class CopiedFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velto copied ")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        for name in places.SHIPPED:
            shutil.copy(places.BIN / name, self.folder)

    def run_host(self, *arguments):
        return wine.run(self.folder / "velto-host.exe", *arguments, timeout=60,
                        VELTO_LOG_FILE=wine.to_windows(self.folder / "module.log"))

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
