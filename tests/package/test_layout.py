"""The files of the packages: names, checksums, nothing that differs between two builds."""

import calendar
import hashlib
import os
import pathlib
import re
import struct
import tempfile
import unittest
import zipfile
import zlib

import packages
import binaries
import package_archives
import package_parts
import package_run
import pdb_file

OWN = ["LibVeltoAudioHandler.dll", "velto-host.exe"]
FFMPEG = ["avcodec-59.dll", "avformat-59.dll", "avutil-57.dll", "swresample-4.dll"]
CMAKE = "lib/cmake/VeltoAudioHandler/VeltoAudioHandler"
EXAMPLES = "share/velto-audio-handler/examples"
SITE = pathlib.Path(package_run.cached(packages.BUILD, "VELTO_SITE"))
EXPECTED = [
    *(f"bin/{name}" for name in OWN + FFMPEG), "include/velto/audio_handler.h",
    "lib/libVeltoAudioHandler.dll.a", "lib/LibVeltoAudioHandler.lib", "lib/LibVeltoAudioHandler.def",
    f"{CMAKE}Config.cmake", f"{CMAKE}ConfigVersion.cmake", f"{CMAKE}Targets.cmake", f"{CMAKE}Targets-relwithdebinfo.cmake",
    "lib/cmake/VeltoAudioHandler/VeltoCopyRuntime.cmake", "lib/pkgconfig/velto-audio-handler.pc",
    *(f"{EXAMPLES}/{name}" for name in ("CMakeLists.txt", "example_host.c", "example_recorder.c")),
    "licenses/LICENSE", "licenses/NOTICE", *(f"licenses/{part.id}.txt" for part in package_parts.shipped_parts(SITE)),
    "README.txt", "sbom.spdx.json", "SHA256SUMS"]
# The pages that a reader of the package looks for; the site's own tests check the others.
PAGES = [f"doc/{name}.html" for name in ("index", "integration", "contract", "interface", "command-line", "json", "faults",
                                         "shipping", "changelog", "search")]


def link_time(data):
    """The time in the header of a DLL or program."""
    header = struct.unpack_from("<I", data, 0x3C)[0]
    return struct.unpack_from("<I", data, header + 8)[0]


def local_paths():
    """The folders of this machine that a compiler could write into its output."""
    home = pathlib.Path(package_run.cached(packages.BUILD, "CMAKE_HOME_DIRECTORY"))
    sources = [home / part for part in ("capture", "handler", "packaging", "platform", "playback", "render", "support",
                                        "tools")]
    return [str(path).encode() for path in [packages.BUILD, packages.FFMPEG, *sources]]


class Layout(packages.Unpacked):
    def files(self):
        return {path.relative_to(self.package).as_posix() for path in package_archives.files_of(self.package)}

    def test_package_has_exactly_the_listed_files(self):
        pages = [f"doc/{path.relative_to(SITE).as_posix()}" for path in package_archives.files_of(SITE)]
        self.assertEqual(set(PAGES) - set(pages), set())
        reports = [] if packages.is_unchecked() else package_run.REPORTS
        self.assertEqual(sorted(self.files()), sorted([*EXPECTED, *pages, *reports]))

    def test_checksums_cover_every_other_file(self):
        lines = (self.package / "SHA256SUMS").read_text("utf-8").splitlines()
        listed = dict(reversed(line.split("  ", 1)) for line in lines)
        self.assertEqual(set(listed), self.files() - {"SHA256SUMS"})
        for name, digest in listed.items():
            self.assertEqual(hashlib.sha256((self.package / name).read_bytes()).hexdigest(), digest, name)

    def test_readme_names_every_folder(self):
        readme = (self.package / "README.txt").read_text("utf-8")
        for folder in {name.partition("/")[0] + "/" for name in EXPECTED + PAGES if "/" in name}:
            self.assertRegex(readme, rf"(?m)^{re.escape(folder)} ")

    def test_def_file_and_both_import_libraries_have_the_entry(self):
        lines = (self.package / "lib" / "LibVeltoAudioHandler.def").read_text("utf-8").split()
        self.assertEqual(lines, ["LIBRARY", "LibVeltoAudioHandler.dll", "EXPORTS", "VELTOGetAudioHandler"])
        for library in ("libVeltoAudioHandler.dll.a", "LibVeltoAudioHandler.lib"):
            symbols = packages.run("llvm-nm", self.package / "lib" / library)
            self.assertIn("T VELTOGetAudioHandler", symbols, library)
            self.assertIn(b"LibVeltoAudioHandler.dll\0", (self.package / "lib" / library).read_bytes(), library)

    def test_symbols_have_exactly_the_listed_files(self):
        stems = [pathlib.PurePath(name).stem for name in OWN + FFMPEG]
        with zipfile.ZipFile(packages.archive("symbols.zip")) as symbols:
            self.assertEqual(sorted(symbols.namelist()), sorted(
                [*(f"{name}.debug" for name in OWN + FFMPEG), *(f"{stem}.pdb" for stem in stems), "index"]))

    def test_index_and_pdb_files_have_build_ids_of_shipped_binaries(self):
        with zipfile.ZipFile(packages.archive("symbols.zip")) as symbols:
            index = dict(line.split() for line in symbols.read("index").decode().splitlines())
            self.assertEqual(sorted(index), sorted(OWN + FFMPEG))
            for name, build_id in index.items():
                with self.subTest(name):
                    binary = binaries.Binary(self.package / "bin" / name)
                    self.assertEqual(str(binary.build_id), build_id)
                    self.assertEqual(pdb_file.PdbFile(symbols.read(binary.pdb_name)).build_id, binary.build_id)

    def test_symbols_cover_every_shipped_binary_and_match_it(self):
        with zipfile.ZipFile(packages.archive("symbols.zip")) as symbols:
            for name in OWN + FFMPEG:
                with self.subTest(name):
                    debug = symbols.read(f"{name}.debug")
                    self.assertIn(".debug_info", packages.run("x86_64-w64-mingw32-objdump", "-h", self.written(debug)))
                    section = self.root / "link"
                    packages.run("x86_64-w64-mingw32-objcopy", "--dump-section", f".gnu_debuglink={section}",
                                 self.package / "bin" / name, self.root / "copy")
                    link = section.read_bytes()
                    self.assertEqual(link.split(b"\0")[0].decode(), f"{name}.debug")
                    self.assertEqual(struct.unpack_from("<I", link, (len(name) + 7 + 3) // 4 * 4)[0], zlib.crc32(debug))

    def written(self, data):
        path = self.root / "symbols"
        path.write_bytes(data)
        return path


class Reproducibility(packages.Unpacked):
    def contents(self):
        for kind in ("windows-x64.zip", "symbols.zip"):
            with zipfile.ZipFile(packages.archive(kind)) as packed:
                for name in packed.namelist():
                    yield name, packed.read(name)

    def test_no_file_contains_a_path_of_this_machine(self):
        for name, data in self.contents():
            for path in local_paths():
                self.assertNotIn(path, data, f"{name} contains {path.decode()}")

    def test_binaries_have_no_link_time(self):
        for name, data in self.contents():
            if data.startswith(b"MZ"):
                self.assertEqual(link_time(data), 0, name)

    def test_archive_depends_on_names_and_contents_only(self):
        original = packages.archive("windows-x64.zip")
        with zipfile.ZipFile(original) as packed:
            moment = packed.infolist()[0].date_time
        for path in package_archives.files_of(self.package):
            path.chmod(0o600)
            os.utime(path, (1, 1))
        with tempfile.TemporaryDirectory() as folder:
            again = pathlib.Path(folder) / "again.zip"
            package_archives.write_zip(again, self.package, calendar.timegm(moment))
            self.assertEqual(again.read_bytes(), original.read_bytes())


if __name__ == "__main__":
    unittest.main()
