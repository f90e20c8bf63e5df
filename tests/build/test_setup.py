"""scripts/setup with a damaged cache, and with the package sources of different machines."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import places

FOREIGN = "deb [signed-by=/usr/share/keyrings/x.gpg] https://packages.example.org/apt stable main\n"


def shell(commands, **environment):
    script = f'. "{places.REPOSITORY}/scripts/lib.sh"; . "$repo/scripts/ffmpeg-for-windows.sh"; {commands}'
    return subprocess.run(["bash", "-c", script], env={**os.environ, **environment}, capture_output=True, text=True)


class FFmpegCache(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = folder.name
        cache = pathlib.Path(folder.name) / "velto-audio-handler"
        hash_ = shell("ffmpeg_hash").stdout.strip()
        self.build = cache / f"ffmpeg-5.1.9-{hash_}"
        # The files need no real content; they must match the stamp.
        (self.build / "bin").mkdir(parents=True)
        for dll in places.FFMPEG:
            (self.build / "bin" / dll).write_text(f"the text of {dll}")
        # The pinned source package.
        (self.build / "source").mkdir()
        (self.build / "source" / "ffmpeg.dsc").write_text("the source")
        self.pin = cache / "pin.sha256"
        self.pin.write_text(subprocess.run(["sha256sum", "ffmpeg.dsc"], cwd=self.build / "source", check=True,
                                           capture_output=True, text=True).stdout)
        self.write_stamp()

    def write_stamp(self):
        subprocess.run("find . -type f ! -name stamp -print0 | xargs -0 sha256sum >../stamp && mv ../stamp .",
                       shell=True, cwd=self.build, check=True)

    def cached(self):
        return shell(f'ffmpeg_pin="{self.pin}"; ffmpeg_cached', XDG_CACHE_HOME=self.home).stdout.strip()

    def test_complete_ffmpeg_build_in_cache_is_found(self):
        self.assertEqual(self.cached(), str(self.build))

    def test_cached_ffmpeg_build_with_changed_file_is_not_used(self):
        (self.build / "bin" / places.FFMPEG[0]).write_text("half of")
        self.assertEqual(self.cached(), "")

    def test_cached_ffmpeg_build_with_missing_file_is_not_used(self):
        (self.build / "bin" / places.FFMPEG[1]).unlink()
        self.assertEqual(self.cached(), "")

    def test_cached_ffmpeg_build_without_stamp_is_not_used(self):
        (self.build / "stamp").unlink()
        self.assertEqual(self.cached(), "")

    def test_cached_ffmpeg_build_is_used_until_pinned_checksums_change(self):
        (self.build / "source" / "ffmpeg.dsc").write_text("the source that the archive had")
        shutil.copy(self.pin, self.build / "ffmpeg-source.sha256")
        self.write_stamp()
        self.assertEqual(self.cached(), str(self.build))
        self.pin.write_text(f"{'0' * 64}  ffmpeg.dsc\n")
        self.assertEqual(self.cached(), "")

    def test_cached_ffmpeg_build_with_other_configure_line_is_not_used(self):
        self.build.rename(self.build.with_name("ffmpeg-5.1.9-0123456789ab"))
        self.assertEqual(self.cached(), "")


class NativeFFmpeg(unittest.TestCase):
    """The commands that unpack, configure, compile and install are replaced."""

    STEPS = """. "$repo/scripts/ffmpeg-native.sh"
        run_logged() {
            case $2 in
                unpacking*) mkdir "$work/tree" ;;
                installing*) mkdir -p "$work/root$target" ;;
            esac
        }
        build_native_ffmpeg; readlink "$cache/ffmpeg-native"
    """

    def test_source_package_with_same_version_of_ffmpeg_is_built(self):
        with tempfile.TemporaryDirectory() as name:
            windows = pathlib.Path(name) / "velto-audio-handler" / "ffmpeg-windows"
            header = windows / "include" / "libavutil" / "ffversion.h"
            for folder in (windows / "source", header.parent):
                folder.mkdir(parents=True)
            header.write_text('#define FFMPEG_VERSION "5.1.9"\n')
            (windows / "source" / "ffmpeg_5.1.9-1.dsc").touch()
            first = shell(self.STEPS, XDG_CACHE_HOME=name).stdout
            self.assertIn("building FFmpeg", first)
            self.assertNotIn("building FFmpeg", shell(self.STEPS, XDG_CACHE_HOME=name).stdout)
            (windows / "source" / "ffmpeg_5.1.9-1.dsc").rename(windows / "source" / "ffmpeg_5.1.9-2.dsc")
            second = shell(self.STEPS, XDG_CACHE_HOME=name).stdout
            self.assertIn("building FFmpeg", second)
            self.assertIn("ffmpeg-native-5.1.9-2-", second.splitlines()[-1])


class PackageSources(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.apt = pathlib.Path(folder.name) / "apt"
        self.out = pathlib.Path(folder.name) / "out"
        (self.apt / "sources.list.d").mkdir(parents=True)

    def source_list(self):
        result = shell(f'private_source_list "{self.out}" "{self.apt}"')
        text = "".join(file.read_text() for file in sorted(self.out.glob("*"))) if self.out.is_dir() else ""
        return result, text

    def test_package_sources_in_one_line_form_are_converted(self):
        (self.apt / "sources.list").write_text(
            "# deb http://mirror.example.org/debian bookworm contrib\n"
            "deb cdrom:[Debian GNU/Linux 12 _Bookworm_]/ bookworm main\n"
            "deb http://mirror.example.org/debian bookworm main\n"
            "deb-src http://mirror.example.org/debian bookworm main\n" + FOREIGN)
        result, text = self.source_list()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(text, "deb-src http://mirror.example.org/debian bookworm main\n")

    def test_package_sources_in_stanza_form_are_converted(self):
        (self.apt / "sources.list.d" / "debian.sources").write_text(
            "Types: deb\nURIs: http://mirror.example.org/debian\nSuites: bookworm bookworm-updates\nComponents: main\n\n"
            "Types: deb\nURIs: https://packages.example.org\nSuites: stable\nComponents: main\n")
        result, text = self.source_list()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(text.strip(), "Types: deb-src\nURIs: http://mirror.example.org/debian\n"
                                       "Suites: bookworm bookworm-updates\nComponents: main")

    def test_sources_of_debian_13_become_those_of_debian_12(self):
        (self.apt / "sources.list").write_text("deb http://mirror.example.org/debian trixie-updates main\n")
        (self.apt / "sources.list.d" / "debian.sources").write_text(
            "Types: deb\nURIs: http://mirror.example.org/debian\nSuites: trixie trixie-updates\nComponents: main\n")
        result, text = self.source_list()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(text, "Types: deb-src\nURIs: http://mirror.example.org/debian\n"
                               "Suites: bookworm bookworm-updates\nComponents: main\n\n"
                               "deb-src http://mirror.example.org/debian bookworm-updates main\n")

    def test_missing_debian_source_is_reported_with_remedy(self):
        (self.apt / "sources.list").write_text(FOREIGN)
        result, _ = self.source_list()
        self.assertEqual(result.returncode, 1)
        self.assertIn("deb MIRROR bookworm main", result.stderr)


class PinnedSource(unittest.TestCase):
    """The archive is replaced by a function that copies files."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.archive = pathlib.Path(folder.name) / "archive"
        self.archive.mkdir()
        for name in ("ffmpeg_5.1.8.dsc", "ffmpeg_5.1.8.orig.tar.xz"):
            (self.archive / name).write_text(f"the text of {name}")
        self.pin = pathlib.Path(folder.name) / "pin.sha256"
        self.pin.write_text(subprocess.run("sha256sum *", shell=True, cwd=self.archive, check=True, capture_output=True,
                                           text=True).stdout)
        self.work = pathlib.Path(folder.name) / "work"

    def fetch(self):
        return shell(f'fetch_source() {{ mkdir -p "$2/download"; cp "{self.archive}"/* "$2/download/"; }}; '
                     f'ffmpeg_pin="{self.pin}"; fetch_ffmpeg_source "{self.work}"')

    def test_tested_source_package_is_accepted_silently(self):
        result = self.fetch()
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_newer_source_package_is_reported_with_both_names(self):
        (self.archive / "ffmpeg_5.1.8.dsc").rename(self.archive / "ffmpeg_5.1.9.dsc")
        result = self.fetch()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("tested:  ffmpeg_5.1.8\n", result.stderr)
        self.assertIn("fetched: ffmpeg_5.1.9\n", result.stderr)

    def test_changed_source_package_is_reported(self):
        (self.archive / "ffmpeg_5.1.8.orig.tar.xz").write_text("another text")
        self.assertIn("not the one that this commit was tested with", self.fetch().stderr)


class Commands(unittest.TestCase):
    def test_unknown_option_is_refused_with_usage(self):
        for script in ("setup", "build", "fresh"):
            with self.subTest(script):
                result = subprocess.run([places.REPOSITORY / "scripts" / script, "--no-such-option"],
                                        capture_output=True, text=True)
                self.assertEqual(result.returncode, 1)
                self.assertIn(f"usage: scripts/{script}", result.stderr)

    def test_fresh_refuses_unknown_suite_and_missing_command(self):
        for arguments, reason in ((["buster", "true"], "unknown suite buster"), (["trixie"], "no command"), ([], "no suite")):
            with self.subTest(reason):
                result = subprocess.run([places.REPOSITORY / "scripts" / "fresh", *arguments], capture_output=True, text=True)
                self.assertEqual(result.returncode, 1)
                self.assertIn(reason, result.stderr)


if __name__ == "__main__":
    unittest.main()
