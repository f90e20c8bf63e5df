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
                self.assertEqual(binaries.pdb_build_id(SYMBOLS / binary.pdb_name), binary.build_id)
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

    def test_symbols_of_one_build_are_equal_and_complete(self):
        first, second = self.folder / "first", self.folder / "second"
        self.assertEqual(script("symbols", first).returncode, 0)
        # Another link of the same binary differs in the time that its PDB file has.
        build = self.folder / "build"
        shutil.copytree(places.BIN, build / "bin")
        shutil.copytree(SYMBOLS, build / "symbols")
        pdb = build / "symbols" / "LibVeltoAudioHandler.pdb"
        content = bytearray(pdb.read_bytes())
        offset, _ = binaries.pdb_stream(bytes(content), 1)
        struct.pack_into("<I", content, offset + 4, 1)
        pdb.write_bytes(content)
        result = script("symbols", second, "--build", build)
        self.assertEqual(result.returncode, 0, result.stderr)
        names = sorted(file.name for file in first.iterdir())
        expected = [f"{name}.debug" for name in ALL] + [
            f"{pathlib.Path(name).stem}.pdb" for name in ALL] + ["index"]
        self.assertEqual(names, sorted(expected))
        self.assertEqual(filecmp.cmpfiles(first, second, names, shallow=False), (names, [], []))
        self.assertIn(f"{places.MODULE} {binaries.Binary(places.BIN / places.MODULE).build_id}\n",
                      (first / "index").read_text("utf-8"))
        self.assertIn("Has Publics: true", pdbutil("-summary", first / "velto-host.pdb"))

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
        text = self.symbolise(self.dump).stdout
        self.assertIn("exception 0xC000001D at velto-host.exe+0x", text)
        functions = re.findall(r"= (?:velto::)?(?:\(anonymous namespace\)::)?([\w:]+)[^\n]*[/\\]([\w.]+:\d+)\)", text)
        order = [function for function, _ in functions]
        for earlier, later in (("CrashOnPurpose", "host::ListenerLog::OnEvent"), ("host::ListenerLog::OnEvent",
                               "VeltoSetAudioParameter"), ("VeltoSetAudioParameter", "host::TrackSender::Start"),
                               ("host::TrackSender::Start", "main")):
            self.assertIn(earlier, order, text)
            self.assertIn(later, order, text)
            self.assertLess(order.index(earlier), order.index(later), text)
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
        self.assertIn("VeltoSetAudioParameter", self.symbolise(other, "--all-threads").stdout)

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

    def test_symbols_of_another_build_are_not_used(self):
        other = self.folder / "other"
        other.mkdir()
        for name in OWN:
            binary = binaries.Binary(places.BIN / name)
            for folder, file in ((places.BIN, name), (SYMBOLS, f"{name}.debug")):
                content = (folder / file).read_bytes()
                guid = binary.build_id.guid.bytes_le
                self.assertEqual(content.count(guid), 1)
                (other / file).write_bytes(content.replace(guid, bytes(16)))
        result = script("symbolise", self.dump, "--symbols", other, "--binaries", places.BIN)
        self.assertEqual(result.returncode, 1, result.stdout)
        self.assertIn("no place was found", result.stderr)

    def test_damaged_dumps_are_refused_without_traceback(self):
        content = self.dump.read_bytes()
        short = self.folder / "short.dmp"
        for size in (4, 20, 32, 200, len(content) // 2):
            with self.subTest(size):
                short.write_bytes(content[:size])
                result = self.symbolise(short, code=1)
                self.assertIn("symbolise: error: ", result.stderr)
                self.assertNotIn("Traceback", result.stderr)

    def test_text_without_offsets_is_reported(self):
        result = self.symbolise(self.text_file("nothing to see\nother.dll+0x10\n"), code=1)
        self.assertIn("no place was found", result.stderr)


if __name__ == "__main__":
    unittest.main()
