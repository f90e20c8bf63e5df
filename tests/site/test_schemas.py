"""The JSON outputs of velto-host under Wine have the form that docs/schemas documents."""

import copy
import json
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import jsonschema
import places
import site_run
import wine_program
from rig import schemas


def tone(path):
    """Writes two seconds of AAC."""
    subprocess.run(["ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", "sine=duration=2:sample_rate=48000", "-ac", "2",
                    "-c:a", "aac", "-flags", "+bitexact", path], check=True)


def names_in(value, prefix=""):
    """The members of an output as the page lists them: tracks[].file."""
    if isinstance(value, list):
        return {name for each in value for name in names_in(each, prefix.removesuffix(".") + "[].")}
    if not isinstance(value, dict):
        return set()
    return {prefix + key for key in value} | {name for key, each in value.items() for name in names_in(each, f"{prefix}{key}.")}


def documented(schema):
    rows = {re.match(r"\| `([^`]+)`", row)[1] for row in site_run.members(schema)}
    for name, part in schema.get("$defs", {}).get("result", {}).get("properties", {}).items():
        if "$ref" in part:
            other = schemas.store()[part["$ref"].partition("#")[0]]
            rows |= {f"{name}.{row}" for row in documented(other)}
    return rows


class Outputs(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        tone(cls.folder / "tone.aac")

    def run_host(self, *arguments, expect=0):
        """Runs velto-host without a sound driver. Returns its output. expect: the exit code; None: any."""
        result = wine_program.run(places.WINE_PREFIX, places.HOST, *arguments, "--json", cwd=self.folder,
                                  VELTO_LOG_FILE=wine_program.to_windows(self.folder / "module.log"))
        if expect is not None:
            self.assertEqual(result.returncode, expect, result.stdout)
        return json.loads(result.stdout)

    def matches(self, command, *arguments, expect=0):
        """The output matches the schema of the command, and each of its members is documented."""
        output = self.run_host(command, *arguments, expect=expect)
        self.assertEqual(output["exitCode"], expect)
        return self.has_form_of(command, output)

    def has_form_of(self, name, output):
        self.assertEqual(output["schema"], f"urn:velto:velto-host-{name}:1")
        schemas.check(output)
        schema = schemas.store()["urn:velto:velto-host-error:1" if "error" in output else output["schema"]]
        self.assertEqual(names_in(output) - {"schema"} - documented(schema), set(), "members without documentation")
        return output

    def test_capabilities_match(self):
        self.assertEqual(len(self.matches("capabilities")["devices"]), 4)

    def test_play_matches(self):
        self.assertGreater(self.matches("play", "tone.aac", "--seconds", "0.3")["unitsSent"], 10)

    def test_play_that_ends_in_mid_stream_matches(self):
        output = self.matches("play", "tone.aac", "--exit-after", "0.2", "--exit-code", "7", expect=7)
        self.assertTrue(output["exitedWhileRunning"])

    def test_play_that_unloads_matches(self):
        self.assertIn("moduleGone", self.matches("play", "tone.aac", "--unload-after", "0.2", "--unload-wait", "0")["unload"])

    def test_record_without_microphone_matches(self):
        self.assertIsNone(self.matches("record", "voice.aac", "--seconds", "0.2", "--packet-times", expect=5)["firstPacketMs"])

    def test_duplex_matches(self):
        output = self.matches("duplex", "--play", "tone.aac", "--record", "voice.aac", "--seconds", "0.3", expect=5)
        self.assertEqual(output["play"]["exitCode"], 0)

    def test_devices_without_sound_driver_match(self):
        """Wine 8 has no device enumerator then, Wine 10 one without endpoints."""
        output = self.run_host("devices", expect=None)
        failed = "error" in output
        self.assertEqual(self.matches("devices", expect=1 if failed else 0).get("devices", []), [])

    def test_log_matches(self):
        for name in ("storm.log", "no-service.log"):
            shutil.copy(places.REPOSITORY / "tests" / "host" / "logs" / name, self.folder)
            self.assertTrue(self.matches("log", name)["findings"])

    def test_report_matches(self):
        self.assertIn("report.json", self.matches("report", "report.zip")["entries"])

    def test_check_and_its_report_match(self):
        report = self.has_form_of("check", self.run_host("check", "--level", "1", "--report-json", "report.json"))
        self.assertGreater(len(report["results"]), 5)
        self.assertEqual(json.loads((self.folder / "report.json").read_text("utf-8")), report)

    def test_check_list_matches(self):
        self.assertGreater(len(self.has_form_of("check-list", self.run_host("check", "--list"))["checks"]), 50)

    def test_check_verify_matches(self):
        self.run_host("check", "--only", "ENT-3", "--report-json", "entry.json")
        self.assertTrue(self.has_form_of("check-verify", self.run_host("check", "--verify", "entry.json"))["isOfTheseBytes"])

    def test_check_errors_match(self):
        for name, arguments, expect in (("check", ("--only", "none"), 2), ("check", ("--module", "missing.dll"), 3),
                                        ("check", ("--verify", "missing.json"), 4)):
            self.assertIn("error", self.has_form_of(name, self.run_host("check", *arguments, expect=expect)))

    def test_missing_file_matches(self):
        self.assertIn("missing.aac", self.matches("play", "missing.aac", expect=4)["error"])

    def test_missing_module_matches(self):
        self.assertIn("missing.dll", self.matches("capabilities", "--module", "missing.dll", expect=3)["error"])


class Schemas(unittest.TestCase):
    OUTPUT = {"schema": "urn:velto:velto-host-devices:1", "exitCode": 0, "devices": [
        {"id": "{0}", "name": "a", "flow": "render", "state": "active", "defaultFor": ["console"],
         "mixFormat": {"sampleRate": 48000, "channels": 2, "bitsPerSample": 32, "formatTag": 65534}}]}

    def test_every_schema_is_valid_and_documents_every_member(self):
        self.assertGreater(len(schemas.store()), 5)
        for name, schema in schemas.store().items():
            with self.subTest(name):
                jsonschema.Draft202012Validator.check_schema(schema)
                for row in site_run.members(schema):
                    self.assertRegex(row, r"^\| `[^`]+` \| [^|]+ \| [^|]+ \|$")

    def test_name_of_file_is_that_of_schema(self):
        for path in schemas.FOLDER.iterdir():
            command = path.name.removeprefix("velto-host-").removesuffix(".schema.json")
            self.assertEqual(json.loads(path.read_text("utf-8"))["$id"], f"urn:velto:velto-host-{command}:1")

    def test_correct_output_is_accepted(self):
        schemas.check(self.OUTPUT)

    def test_output_that_violates_its_schema_is_refused(self):
        # Shows that the tests above can fail.
        for change in (lambda o: o.pop("exitCode"), lambda o: o.update(schema="urn:velto:velto-host-devices:2"),
                       lambda o: o["devices"][0].update(flow="both"), lambda o: o["devices"][0]["mixFormat"].pop("channels"),
                       lambda o: o["devices"][0].update(name=None), lambda o: o.update(exitCode="0")):
            output = copy.deepcopy(self.OUTPUT)
            change(output)
            with self.assertRaises(AssertionError):
                schemas.check(output)


if __name__ == "__main__":
    unittest.main()
