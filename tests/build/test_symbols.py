"""Symbols of the shipped binaries, and scripts/symbolise on a crash that this test provokes under Wine."""

import filecmp
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

import places
import wine

sys.path.insert(0, str(places.REPOSITORY / "scripts"))
import binaries  # noqa: E402  (after the path)
import minidump  # noqa: E402
import pdb_file  # noqa: E402

SYMBOLS = places.BUILD / "symbols"
OWN = (places.MODULE, "velto-host.exe")
ALL = (*OWN, *places.FFMPEG)
ENTRY = "VELTOGetAudioHandler"
ILLEGAL_INSTRUCTION = 0xC000001D


def script(name, *arguments):
    return subprocess.run([places.REPOSITORY / "scripts" / name, *(str(argument) for argument in arguments)],
                          capture_output=True, text=True, timeout=240, check=False)


def pdbutil(option, pdb):
    return subprocess.run(["llvm-pdbutil", "dump", option, str(pdb)], check=True, capture_output=True, text=True).stdout


def export_rva(name):
    text = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", str(places.BIN / places.MODULE)],
                          check=True, capture_output=True, text=True).stdout
    table = text.split("Export Address Table", 1)[1]
    return int(re.search(r"\+base\[ *1\] +([0-9a-f]+) Export RVA", table)[1], 16) if name in table else None


class SymbolFiles(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velto symbols ")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def test_pdb_and_debug_file_have_build_id_of_binary(self):
        for name in ALL:
            with self.subTest(name):
                binary = binaries.Binary(places.BIN / name)
                self.assertEqual(binary.pdb_name, f"{pathlib.Path(name).stem}.pdb")
                summary = pdbutil("-summary", SYMBOLS / binary.pdb_name)
                guid = re.search(r"GUID: \{([0-9A-F-]+)\}", summary)[1].replace("-", "")
                age = int(re.search(r"Age: (\d+)", summary)[1])
                self.assertEqual((guid, age), (binary.build_id.guid.hex.upper(), binary.build_id.age))
                self.assertEqual(pdb_file.PdbFile((SYMBOLS / binary.pdb_name).read_bytes()).build_id, binary.build_id)
                self.assertEqual(binaries.Binary(SYMBOLS / f"{name}.debug").build_id, binary.build_id)

    def test_pdb_has_functions_of_module_at_their_addresses(self):
        publics = pdbutil("-publics", SYMBOLS / "LibVeltoAudioHandler.pdb")
        found = dict(re.findall(r"S_PUB32 \[size = \d+\] `(.*)`\n.*addr = 0001:(\d+)", publics))
        functions = subprocess.run(["c++filt"], input="\n".join(found), check=True, capture_output=True, text=True).stdout
        for function in (ENTRY, "velto::VeltoSetAudioParameter(", "velto::FFmpegDecode::DecoderAudioFrame(",
                         "velto::AudioPlayerWas::PlayAudio("):
            self.assertIn(function, functions)
        text_begin = 0x1000  # of section 1
        self.assertEqual(text_begin + int(found[ENTRY]), export_rva(ENTRY))

    def test_script_writes_complete_symbols(self):
        result = script("symbols", self.folder / "out")
        self.assertEqual(result.returncode, 0, result.stderr)
        expected = [f"{name}.debug" for name in ALL] + [f"{pathlib.Path(name).stem}.pdb" for name in ALL] + ["index"]
        self.assertEqual(sorted(file.name for file in (self.folder / "out").iterdir()), sorted(expected))
        index = (self.folder / "out" / "index").read_text("utf-8").splitlines()
        self.assertEqual(index, [f"{name} {binaries.Binary(places.BIN / name).build_id}" for name in ALL])
        for name in ALL:
            self.assertTrue(filecmp.cmp(self.folder / "out" / f"{name}.debug", SYMBOLS / f"{name}.debug", shallow=False))

    def test_written_pdb_has_names_and_addresses_of_linked_one(self):
        self.assertEqual(script("symbols", self.folder / "out").returncode, 0)
        for name in ALL:
            pdb = f"{pathlib.Path(name).stem}.pdb"
            for option in ("-publics", "-section-headers", "-section-contribs", "-id-extras"):
                with self.subTest(pdb, option=option):
                    written = pdbutil(option, self.folder / "out" / pdb)
                    self.assertGreater(len(written.splitlines()), 5, written)
                    self.assertEqual(written, pdbutil(option, SYMBOLS / pdb))

    def test_links_in_two_folders_give_equal_pdb_files(self):
        written = []
        for name in ("a", "another folder"):
            folder = self.folder / name
            folder.mkdir()
            (folder / "one.c").write_text("int Twice(int number) { return 2 * number; }\n")
            for command in (("-c", "one.c"), ("-shared", "-o", "one.dll", "one.o", "-nostdlib", "-Wl,-e,0,--no-insert-timestamp",
                                             "-Wl,--build-id,--pdb=one.pdb")):
                subprocess.run(["x86_64-w64-mingw32-gcc-posix", *command], cwd=folder, check=True)
            content = bytearray((folder / "one.pdb").read_bytes())
            self.assertIn(bytes(folder), content)
            time = content.index(struct.pack("<I", 20000404)) + 4  # behind the version of the format
            struct.pack_into("<I", content, time, len(written))
            written.append(pdb_file.PdbFile(bytes(content)).reproducible())
        self.assertEqual(written[0], written[1])
        self.assertNotIn(bytes(self.folder), written[0])

    def test_pdb_of_more_than_one_map_block_keeps_its_streams(self):
        streams = [bytes([number]) * 5000 for number in range(220)] + [None, b""]
        streams[1], streams[3] = bytes(28), bytes(64)
        content = pdb_file.packed(streams)
        self.assertEqual(pdb_file.PdbFile(content).streams, streams)
        self.assertGreater(len(content), 1024 * 1024)
        (self.folder / "large.pdb").write_bytes(content)
        listed = pdbutil("-streams", self.folder / "large.pdb")
        self.assertRegex(listed, r"Stream 219 \( *5000 bytes\)")

    def test_broken_pdb_files_are_refused(self):
        content = (SYMBOLS / "LibVeltoAudioHandler.pdb").read_bytes()
        for broken in (b"", content[:40], content[:2000], b"x" + content):
            with self.assertRaises(pdb_file.BadPdb):
                pdb_file.PdbFile(broken)

    def test_damaged_pdb_files_are_refused(self):
        content = bytearray((SYMBOLS / "LibVeltoAudioHandler.pdb").read_bytes())
        struct.pack_into("<I", content, len(pdb_file.MAGIC), 0)  # the size of a block
        with self.assertRaises(pdb_file.BadPdb):
            pdb_file.PdbFile(bytes(content))
        # A linked file whose symbols are in a stream that does not exist.
        debug_info = bytearray(pdb_file.DEBUG_INFO_HEADER + pdb_file.MODULE_HEADER + 4)
        struct.pack_into("<I", debug_info, pdb_file.MODULES_SIZE, pdb_file.MODULE_HEADER + 4)
        struct.pack_into("<H", debug_info, pdb_file.DEBUG_INFO_HEADER + pdb_file.MODULE_STREAM, 9)
        damaged = pdb_file.PdbFile(pdb_file.packed([b"", bytes(28), b"", bytes(debug_info)]))
        with self.assertRaises(pdb_file.BadPdb):
            damaged.reproducible()

    def test_symbols_of_another_build_are_refused(self):
        build = self.folder / "build"
        shutil.copytree(places.BIN, build / "bin")
        shutil.copytree(SYMBOLS, build / "symbols")
        shutil.copy(build / "symbols" / "velto-host.exe.debug", build / "symbols" / "LibVeltoAudioHandler.dll.debug")
        result = script("symbols", self.folder / "out", "--build", build)
        self.assertEqual(result.returncode, 1)
        self.assertIn("LibVeltoAudioHandler.dll.debug is of another build than", result.stderr)
        (build / "symbols" / "LibVeltoAudioHandler.dll.debug").unlink()
        self.assertIn("LibVeltoAudioHandler.dll.debug is missing", script("symbols", self.folder, "--build", build).stderr)
        (build / "bin" / "LibVeltoAudioHandler.dll").write_bytes(b"")
        result = script("symbols", self.folder, "--build", build)
        self.assertIn("LibVeltoAudioHandler.dll is no binary of Windows", result.stderr)
        self.assertNotIn("Traceback", result.stderr)


class Crash(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="velto crash ")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        sound, cls.dump = cls.folder / "tone.aac", cls.folder / "crash ä.dmp"
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=440:duration=1:sample_rate=48000", "-ac", "2",
                        "-c:a", "aac", str(sound)], check=True)
        cls.result = wine.run_host("play", wine.to_windows(sound), "--crash-in-listener", "--crash-dump",
                                   wine.to_windows(cls.dump), VELTO_LOG_FILE=wine.to_windows(cls.folder / "module.log"))
        cls.symbolised = script("symbolise", cls.dump, "--symbols", SYMBOLS, "--binaries", places.BIN)

    def symbolise(self, file, *arguments, code=0):
        result = script("symbolise", file, "--symbols", SYMBOLS, "--binaries", places.BIN, *arguments)
        self.assertEqual(result.returncode, code, result.stdout + result.stderr)
        return result

    def text_file(self, text, encoding="utf-8"):
        file = self.folder / "log.txt"
        file.write_text(text, encoding)
        return file

    def test_dump_has_stack_through_module(self):
        self.assertEqual(self.result.returncode, ILLEGAL_INSTRUCTION & 0xFF, self.result.stderr)
        self.assertEqual(self.symbolised.returncode, 0, self.symbolised.stderr)
        text = self.symbolised.stdout
        self.assertIn("exception 0xC000001D at velto-host.exe+0x", text)
        functions = re.findall(r"= (?:velto::)?(?:\(anonymous namespace\)::)?([\w:]+)[^\n]*[/\\]([\w.]+:\d+)\)", text)
        order = [function for function, _ in functions]
        for earlier, later in (("CrashOnPurpose", "host::ListenerLog::OnEvent"), ("host::ListenerLog::OnEvent",
                               "VeltoSetAudioParameter"), ("VeltoSetAudioParameter", "host::TrackSender::Start"),
                               ("host::TrackSender::Start", "main")):
            self.assertIn(earlier, order, text)
            self.assertIn(later, order, text)
            self.assertLess(order.index(earlier), order.index(later), text)
        self.assertNotIn("may be wrong", text[:text.index("= main (")], "these frames are walked, not searched for")
        # The line of a frame is that of the call, not of the return address behind it.
        file, _, line = dict(functions)["VeltoSetAudioParameter"].partition(":")
        self.assertEqual(file, "speaker_track.cpp")
        source = (places.REPOSITORY / "handler" / file).read_text("utf-8").splitlines()
        self.assertIn("SendEvent(", source[int(line) - 1])

    def test_all_threads_are_printed(self):
        """The dump names another thread as the one that crashed."""
        other, content = self.folder / "other.dmp", bytearray(self.dump.read_bytes())
        count, directory = struct.unpack_from("<II", content, 8)
        streams = {struct.unpack_from("<I", content, directory + 12 * number)[0]: directory + 12 * number
                   for number in range(count)}
        place = struct.unpack_from("<I", content, streams[minidump.EXCEPTION] + 8)[0]
        struct.pack_into("<I", content, place, struct.unpack_from("<I", content, place)[0] + 1)
        other.write_bytes(content)
        self.assertNotIn("\nthread ", self.symbolise(other, code=1).stdout)
        # Wine 8 puts the place of the crash into the dump, Wine 10 the place at which the thread writes the dump.
        self.assertRegex(self.symbolise(other, "--all-threads").stdout, r"VeltoSetAudioParameter|= OnCrash \(")

    def test_line_that_host_prints_is_symbolised(self):
        self.assertIn("the minidump was written", self.result.stderr)
        text = self.symbolise(self.text_file(self.result.stderr)).stdout
        self.assertRegex(text, r"crashed with 0xC000001D at velto-host\.exe\+0x[0-9A-F]+\n +=.*CrashOnPurpose.*module\.cpp:\d+")

    def test_offsets_of_each_form_are_symbolised(self):
        rva = export_rva(ENTRY)
        for form in ("at LibVeltoAudioHandler.dll+0x{:x}", "LibVeltoAudioHandler.dll + 0x{:X} in thread 7",
                     "=>0 0x00006fffffb0d2a3 in libveltoaudiohandler (+0x{:x}) (0x00000000002bf8a0)",
                     "Faulting module name: LibVeltoAudioHandler.dll, version: 1.0.0.0\nFault offset: 0x{:016x}"):
            with self.subTest(form):
                encoding = "utf-16" if form.startswith("Faulting") else "utf-8"
                text = self.symbolise(self.text_file(form.format(rva) + "\n", encoding)).stdout
                self.assertRegex(text, rf"= {ENTRY} \(.*audio_handler\.cpp:\d+\)")

    def test_ffmpeg_offsets_are_symbolised(self):
        publics = pdbutil("-publics", SYMBOLS / "avcodec-59.pdb")
        offset = int(re.search(r"`avcodec_open2`\n.*addr = 0001:(\d+)", publics)[1]) + 0x1000
        text = self.symbolise(self.text_file(f"avcodec-59.dll+0x{offset:x}\n")).stdout
        self.assertRegex(text, r"= avcodec_open2 \(.*avcodec\.c:\d+\)")

    def other_build(self):
        """A folder with copies of the binaries and symbols that have another build id and checksum."""
        other = self.folder / "other"
        other.mkdir(exist_ok=True)
        for name in OWN:
            guid = binaries.Binary(places.BIN / name).build_id.guid.bytes_le
            for folder, file in ((places.BIN, name), (SYMBOLS, f"{name}.debug")):
                content = (folder / file).read_bytes()
                self.assertEqual(content.count(guid), 1)
                content = bytearray(content.replace(guid, bytes(16)))
                checksum = struct.unpack_from("<I", content, 0x3C)[0] + 0x58
                struct.pack_into("<I", content, checksum, struct.unpack_from("<I", content, checksum)[0] ^ 1)
                (other / file).write_bytes(content)
        return other

    def test_symbols_of_another_build_are_not_used(self):
        result = script("symbolise", self.dump, "--symbols", self.other_build(), "--binaries", places.BIN)
        self.assertEqual(result.returncode, 1, result.stdout)
        self.assertIn("no place was found", result.stderr)

    def test_binaries_of_another_build_are_not_used(self):
        other = self.other_build()
        result = script("symbolise", self.dump, "--symbols", other, "--binaries", other)
        self.assertEqual(result.returncode, 1, result.stdout)

    def test_files_of_dump_are_found_among_several_builds(self):
        other = self.other_build()
        result = script("symbolise", self.dump, "--symbols", other, "--symbols", SYMBOLS, "--binaries", other,
                        "--binaries", places.BIN)
        self.assertEqual(result.stdout, self.symbolised.stdout)

    def test_files_of_dump_are_found_in_unpacked_archives(self):
        for source, folder in ((SYMBOLS, "one/symbols"), (places.BIN, "one/package/bin")):
            shutil.copytree(source, self.folder / folder)
        result = script("symbolise", self.dump, "--symbols", self.folder / "one", "--binaries", self.folder / "one")
        self.assertEqual(result.stdout, self.symbolised.stdout)

    def test_damaged_dumps_are_refused_without_traceback(self):
        content = self.dump.read_bytes()
        short = self.folder / "short.dmp"
        for size in (4, 20, 32, 200, len(content) // 2):
            with self.subTest(size):
                short.write_bytes(content[:size])
                result = self.symbolise(short, code=1)
                self.assertIn("symbolise: error: ", result.stderr)
                self.assertNotIn("Traceback", result.stderr)

    def test_long_lines_and_many_offsets_are_read(self):
        rva = export_rva(ENTRY)
        # A search whose time grows with the square of the length would not end here. The addresses are more than a command
        # line can have.
        lines = ["a-" * 200000, *(f"swresample-4.dll+{offset:#x}" for offset in range(0x1000, 0x1000 + 120000)),
                 f"LibVeltoAudioHandler.dll+{rva:#x}"]
        text = self.symbolise(self.text_file("\n".join(lines) + "\n")).stdout
        self.assertIn(f"= {ENTRY} (", text)

    def test_places_in_folder_with_space_are_complete(self):
        folder = self.folder / "with space"
        folder.mkdir()
        (folder / "one.c").write_text("int Twice(int number) { return 2 * number; }\n")
        subprocess.run(["x86_64-w64-mingw32-gcc-posix", "-g", "-shared", "-nostdlib", "-Wl,-e,0", "-o", folder / "one.dll.debug",
                        folder / "one.c"], check=True)
        begin = binaries.Binary(folder / "one.dll.debug").image_base + 0x1000
        self.assertEqual([str(place) for place in binaries.places_of(folder / "one.dll.debug", [begin])[0]],
                         [f"Twice ({folder}/one.c:1)"])

    def test_text_without_offsets_is_reported(self):
        result = self.symbolise(self.text_file("nothing to see\nother.dll+0x10\n"), code=1)
        self.assertIn("no place was found", result.stderr)


if __name__ == "__main__":
    unittest.main()
