"""velto-host log: on recorded logs, on unreadable files, and on the log of a run whose faults this test makes."""

import html.parser
import json
import pathlib
import random
import subprocess
import tempfile
import unittest

import places
import wine

LOGS = places.REPOSITORY / "tests" / "host" / "logs"
BAD_FILE = 4
REFERENCES = {"src", "href", "data", "action"}  # attributes that name other files


class Page(html.parser.HTMLParser):
    """Collects the elements, and checks that they are nested."""

    VOID = {"meta", "br"}

    def __init__(self, text):
        super().__init__()
        self.elements, self.open, self.references = [], [], []
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attrs):
        self.elements.append((tag, dict(attrs)))
        self.references += [value for name, value in attrs if name in REFERENCES]
        if tag not in self.VOID:
            self.open.append(tag)

    def handle_startendtag(self, tag, attrs):
        self.elements.append((tag, dict(attrs)))
        self.references += [value for name, value in attrs if name in REFERENCES]

    def handle_endtag(self, tag):
        assert self.open and self.open[-1] == tag, f"{tag} ends in {self.open}"
        self.open.pop()

    def count(self, tag):
        return sum(name == tag for name, _ in self.elements)


class LogCommand(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velto log ")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def explain(self, *arguments, code=0, **options):
        result = wine.run_host("log", "--json", *arguments, **options)
        self.assertEqual(result.returncode, code, result.stderr)
        return json.loads(result.stdout), result

    def symbols_index(self):
        subprocess.run([places.REPOSITORY / "scripts" / "symbols", self.folder / "symbols", "--build", places.BUILD],
                       check=True)
        return (self.folder / "symbols" / "index").read_text("utf-8").splitlines()

    @staticmethod
    def rows(explained):
        return {finding["row"]: finding["count"] for finding in explained["findings"]}

    def test_json_and_page_of_recorded_fault(self):
        log = LOGS / "speaker-removed.log"
        page = self.folder / "page ä.html"
        explained, result = self.explain(wine.to_windows(log), "--html", wine.to_windows(page), "--progress")
        self.assertEqual(explained["lines"], len(log.read_bytes().splitlines()))
        self.assertEqual(explained["brokenLines"], 0)
        rows = self.rows(explained)
        self.assertEqual(rows["speaker-removed"], 1)
        self.assertEqual(rows["speaker-lost"], 20)
        self.assertEqual(explained["total"]["lostUnits"], 20)
        self.assertEqual(sum(minute["lostUnits"] for minute in explained["minutes"]), 20)
        step = next(event for event in explained["events"] if event["row"] == "step-failed")
        self.assertEqual(step["detail"], "step 186, initialising the client: 0x8889000F (AUDCLNT_E_ENDPOINT_CREATE_FAILED)")
        self.assertIn("the loudspeaker was removed (0x88890004)", result.stderr)
        self.assertIn("reading speaker-removed.log:", result.stderr)
        parsed = Page(page.read_text("utf-8"))
        self.assertEqual(parsed.open, [])
        self.assertEqual(parsed.references, [])
        self.assertEqual(parsed.count("svg"), 1)
        self.assertGreater(parsed.count("rect"), 20)

    def test_rotated_files_are_one_log(self):
        lines = (LOGS / "speaker-removed.log").read_bytes().splitlines(keepends=True)
        middle = 2 * (len(lines) // 4) + 1  # between the two lines of a message
        older, newer = self.folder / "module.1.log", self.folder / "module.log"
        older.write_bytes(b"".join(lines[:middle]))
        newer.write_bytes(b"".join(lines[middle:]))
        whole, _ = self.explain(wine.to_windows(LOGS / "speaker-removed.log"))
        # Without a file, the command reads the module's log and its older files.
        parts, _ = self.explain(VELTO_LOG_FILE=wine.to_windows(newer))
        self.assertEqual([pathlib.PureWindowsPath(file).name for file in parts["files"]], [older.name, newer.name])
        for key in ("lines", "messages", "total", "findings", "events"):
            self.assertEqual(parts[key], whole[key], key)

    def test_large_log_is_read_completely(self):
        content = (LOGS / "storm.log").read_bytes()
        large = self.folder / "large.log"
        large.write_bytes(content * 150)  # 9 MB
        once, _ = self.explain(wine.to_windows(LOGS / "storm.log"))
        many, _ = self.explain(wine.to_windows(large))
        self.assertEqual(many["lines"], 150 * once["lines"])
        self.assertEqual(many["total"]["decodeErrors"], 150 * once["total"]["decodeErrors"])

    def test_bad_files_are_refused_with_reason(self):
        empty, other = self.folder / "empty.log", self.folder / "other.log"
        empty.write_bytes(b"")
        other.write_bytes(random.Random(1).randbytes(100000))
        for name, file, reason in (("missing", self.folder / "none.log", "cannot open"), ("empty", empty, "it is empty"),
                                   ("noise", other, "has no line of the module's log"),
                                   ("folder", self.folder, "cannot open")):
            with self.subTest(name):
                explained, result = self.explain(wine.to_windows(file), code=BAD_FILE)
                self.assertIn(reason, explained["error"])
                self.assertIn(reason, result.stderr)
        explained, _ = self.explain(code=BAD_FILE, VELTO_LOG_FILE=wine.to_windows(self.folder / "none.log"))
        self.assertIn("the module is not loaded, or the folder cannot be written", explained["error"])
        log = wine.to_windows(LOGS / "no-service.log")
        self.explain(log, "--html", wine.to_windows(self.folder / "none" / "page.html"), code=BAD_FILE)

    def test_log_is_not_replaced_by_page_or_report(self):
        log = self.folder / "module.log"
        content = (LOGS / "no-service.log").read_bytes()
        log.write_bytes(content)
        other = wine.to_windows(self.folder / "." / "MODULE.log")  # Windows finds the file by this name, too
        explained, _ = self.explain(wine.to_windows(log), "--html", other, code=BAD_FILE)
        self.assertIn("is a log that would be lost", explained["error"])
        result = wine.run_host("report", other, VELTO_LOG_FILE=wine.to_windows(log))
        self.assertEqual(result.returncode, BAD_FILE, result.stderr)
        self.assertEqual(log.read_bytes(), content)

    def test_provoked_faults_are_named(self):
        """Plays a damaged file and records, both without a sound server."""
        speech = self.folder / "speech.aac"
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=440:duration=4:sample_rate=48000", "-ac", "2",
                        "-c:a", "aac", "-b:a", "128k", str(speech)], check=True)
        damaged = bytearray(speech.read_bytes())
        chance = random.Random(5)
        for _ in range(60):
            damaged[chance.randrange(len(damaged) // 4, len(damaged) // 2)] ^= 1 << chance.randrange(8)
        speech.write_bytes(damaged)
        log = self.folder / "module.log"
        wine.run_host("play", wine.to_windows(speech), "--send-damaged", VELTO_LOG_FILE=wine.to_windows(log))
        wine.run_host("record", wine.to_windows(self.folder / "voice.aac"), "--seconds", "1",
                      VELTO_LOG_FILE=wine.to_windows(log))
        explained, _ = self.explain(wine.to_windows(log))
        rows = self.rows(explained)
        self.assertEqual(explained["brokenLines"], 0)
        for row in ("speaker-not-opened", "step-failed", "no-speaker", "damaged-unit", "cushion", "capture-stopped"):
            self.assertIn(row, rows)
        self.assertTrue({"no-audio-service", "no-microphone"} & set(rows), rows)
        for row in ("not-aac", "speaker-removed", "underrun", "no-cushion"):
            self.assertNotIn(row, rows)
        index = dict(line.split() for line in self.symbols_index())
        self.assertEqual(len(explained["builds"]), 1, "both hosts use one build")
        self.assertRegex(explained["builds"][0]["text"],
                         rf"^LibVeltoAudioHandler \d+\.\d+\.\d+, commit ([0-9a-f]{{12}}\+?|unknown), build id "
                         rf"{index[places.MODULE]}, FFmpeg 5\.1\S*, Wine \S+$")
        self.assertEqual(log.read_text("utf-8").count("[info] [Logging] LibVeltoAudioHandler"), 2)
        self.assertEqual(len(explained["streams"]), 1)
        self.assertEqual(explained["total"]["decodeErrors"], log.read_text("utf-8").count("[NR] AUDIO decode error:"))


if __name__ == "__main__":
    unittest.main()
