"""The shipped files run from any folder."""

import pathlib
import shutil
import tempfile
import unittest

import places
import wine


CHECK_NOT_MADE = 7


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

    def check_copied_module(self, *arguments):
        """Runs the checker of the build folder, which has loaded its own FFmpeg DLLs, on the copied module."""
        return wine.run_host("check", "--module", wine.to_windows(self.folder / places.MODULE), *arguments, timeout=100,
                             VELTO_LOG_FILE=wine.to_windows(self.folder / "module.log"))

    def test_checker_of_other_folder_examines_copied_module(self):
        result = self.check_copied_module("--level", "1")
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_checker_of_other_folder_refuses_module_with_other_ffmpeg(self):
        name = "avutil-57.dll"
        original = (self.folder / name).read_bytes()
        for change, text in ((lambda file: file.write_bytes(original + b"\0"), "differs"), (pathlib.Path.unlink, "needs")):
            with self.subTest(text):
                change(self.folder / name)
                report = self.folder / "report.json"
                result = self.check_copied_module("--only", "entry.exports", "--report-json", wine.to_windows(report))
                self.assertEqual(result.returncode, CHECK_NOT_MADE, result.stdout + result.stderr)
                self.assertIn(text, result.stderr)
                for part in (wine.to_windows(self.folder / name), wine.to_windows(places.BIN / name), "copy velto-host.exe"):
                    self.assertIn(part.lower(), result.stderr.lower())
                self.assertFalse(report.exists())


if __name__ == "__main__":
    unittest.main()
