"""scripts/package: refuses a changed working tree, and packs the sources alike on every run."""

import io
import pathlib
import subprocess
import tarfile
import tempfile
import time
import unittest

import packages  # finds the modules of scripts/
import package_archives
import package_run

CMAKE = "project(velto_audio_handler\n    VERSION 4.5.6)\n"


class Sources(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.repository = pathlib.Path(folder.name)
        self.git("init", "--quiet")
        (self.repository / "CMakeLists.txt").write_text(CMAKE)
        self.git("add", ".")
        self.git("-c", "user.name=test", "-c", "user.email=test@example.org", "commit", "--quiet", "-m", "test: begin")

    def git(self, *arguments):
        subprocess.run(["git", "-C", str(self.repository), *arguments], check=True)

    def names(self, sources):
        with tarfile.open(fileobj=io.BytesIO(sources.archive())) as archive:
            return [entry.name for entry in archive if entry.isfile()]

    def test_changed_or_new_file_is_refused_and_named(self):
        for name in ("CMakeLists.txt", "new.txt"):
            (self.repository / name).write_text(CMAKE + "# changed\n")
            with self.assertRaisesRegex(RuntimeError, f"(?s)has changes.*{name}"):
                package_run.Sources(self.repository, allow_dirty=False)
            self.git("checkout", "--quiet", ".")
            (self.repository / "new.txt").unlink(missing_ok=True)

    def test_allowed_changes_are_packed_under_another_version(self):
        (self.repository / "new.txt").write_text("new\n")
        sources = package_run.Sources(self.repository, allow_dirty=True)
        self.assertEqual(sources.version, "4.5.6-dirty")
        self.assertIn("velto-audio-handler-4.5.6-dirty/new.txt", self.names(sources))
        # The index of the repository is not changed.
        self.assertIn("?? new.txt", package_run.git("status", "--porcelain", repository=self.repository))

    def test_unchecked_module_is_packed_under_another_version(self):
        sources = package_run.Sources(self.repository, allow_dirty=False, is_checked=False)
        self.assertEqual(sources.version, "4.5.6-unchecked")

    def test_commit_is_packed_alike_at_another_time(self):
        sources = package_run.Sources(self.repository, allow_dirty=False)
        first = sources.archive()
        time.sleep(1.1)  # the resolution of times in a tar file is one second
        self.assertEqual(package_run.Sources(self.repository, allow_dirty=False).archive(), first)
        self.assertEqual(self.names(sources), ["velto-audio-handler-4.5.6/CMakeLists.txt"])

    def test_allowed_changes_are_packed_alike_at_another_time(self):
        (self.repository / "new.txt").write_text("new\n")
        first = package_run.Sources(self.repository, allow_dirty=True).archive()
        time.sleep(1.1)
        self.assertEqual(package_run.Sources(self.repository, allow_dirty=True).archive(), first)


class FFmpegSource(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.ffmpeg = pathlib.Path(folder.name)
        self.pin = self.ffmpeg / "pin.sha256"

    def write_source(self):
        (self.ffmpeg / "source").mkdir()
        (self.ffmpeg / "source" / "ffmpeg.dsc").write_text("the source")
        self.pin.write_text(subprocess.run(["sha256sum", "ffmpeg.dsc"], cwd=self.ffmpeg / "source", check=True,
                                           capture_output=True, text=True).stdout)

    def test_missing_source_package_is_an_error(self):
        with self.assertRaisesRegex(RuntimeError, "no source package"):
            package_run.check_ffmpeg_source(self.ffmpeg, self.pin)

    def test_tested_source_package_is_accepted(self):
        self.write_source()
        package_run.check_ffmpeg_source(self.ffmpeg, self.pin)

    def test_another_source_package_is_an_error_that_names_the_file(self):
        self.write_source()
        (self.ffmpeg / "source" / "ffmpeg.dsc").write_text("another source")
        with self.assertRaisesRegex(RuntimeError, "ffmpeg.dsc: FAILED"):
            package_run.check_ffmpeg_source(self.ffmpeg, self.pin)


class Archives(unittest.TestCase):
    def test_tar_depends_on_names_and_contents_only(self):
        with tempfile.TemporaryDirectory() as name:
            one, other = pathlib.Path(name) / "one", pathlib.Path(name) / "other"
            package_archives.write_tar(one, {"b": "2", "a": b"1"}, 5)
            package_archives.write_tar(other, {"a": "1", "b": b"2"}, 5)
            self.assertEqual(one.read_bytes(), other.read_bytes())


if __name__ == "__main__":
    unittest.main()
