#!/usr/bin/python3
"""The registry value, the listener's events, the examples, and commands that play nothing."""

import io
import json
import shutil
import zipfile

from rig import media, paths, session

KEY = r"HKCU\SOFTWARE\NORVEL\NRAudio\NrMirror"
CLOSED, PARAMETERS = 3, 4
ALL_BITS = 4294967295
ENDPOINT_ID = r"\{0\.0\.[01]\.0{8}\}\.\{[0-9A-Fa-f-]{36}\}"


class RegistryValue(session.SystemTest):
    def test_registry_has_stream_type_while_playing_and_all_bits_after_close(self):
        speech = media.speech("speech")
        self.assertIsNone(self.stream_type())
        recorder = self.session.record()
        host = self.session.play(speech, "--stream-type", "7", "--seconds", "6")
        recorder.wait_for_sound(60)
        self.assertEqual(self.stream_type(), 7)
        self.assert_ended_well(host)
        self.assertEqual(self.stream_type(), ALL_BITS)
        host = self.session.play(speech, "--stream-type", "2", "--seconds", "6", name="again")
        self.until(lambda: self.stream_type() == 2, "the second host's stream type", 60)
        self.assert_ended_well(host)
        self.assertEqual(self.stream_type(), ALL_BITS)
        self.assertEqual(host.log.count("Set streamType failed!"), 0)

    def stream_type(self):
        return self.session.prefix.read_dword(KEY, "StreamType")


class ListenerEvents(session.SystemTest):
    def test_parameter_and_close_events_arrive_in_order(self):
        host = self.session.play(media.speech("speech"), "--seconds", "2",
                                 "--set-parameters", "sampleRate=48000,channel=3,format=1")
        self.assert_ended_well(host)
        self.assertEqual(host.summary["events"], [{"device": "speaker1", "code": PARAMETERS},
                                                  {"device": "speaker1", "code": CLOSED}])

    def test_each_speaker_sends_events_with_its_own_id(self):
        speech = media.speech("speech")
        host = self.session.play(speech, "--seconds", "2", "--also-modem", paths.to_windows(speech))
        self.assert_ended_well(host)
        self.assertEqual(sorted((e["device"], e["code"]) for e in host.summary["events"]),
                         [("ModemSpeaker1", CLOSED), ("ModemSpeaker1", PARAMETERS),
                          ("speaker1", CLOSED), ("speaker1", PARAMETERS)])


class OtherCommands(session.SystemTest):
    def test_capabilities_command_lists_four_devices_in_order(self):
        host = self.session.host("capabilities", "--json")
        self.assert_ended_well(host)
        names = [device["id"] for device in host.summary["devices"]]
        self.assertEqual(names, ["speaker1", "ModemSpeaker1", "ModemMic1", "mic1"])

    def test_devices_command_lists_sinks(self):
        self.assertEqual(sorted(self.session.endpoints()), [self.session.default_endpoint()[0], "spkA"])

    def test_report_has_endpoints_with_names_and_ids_only_if_asked(self):
        devices = self.session.host("devices", "--json", name="devices")
        self.assert_ended_well(devices)
        names = [device["name"] for device in devices.summary["devices"]]
        self.assertIn("spkA", names)

        def facts(endpoints, *members):
            """The endpoints' members, in an order that does not depend on their ids, which Wine may choose again."""
            return sorted(json.dumps([endpoint[member] for member in members]) for endpoint in endpoints)

        members = ("flow", "state", "mixFormat", "defaultFor")
        named, _ = self.make_report("--with-names")
        self.assertEqual(facts(named["endpoints"], "name", *members), facts(devices.summary["devices"], "name", *members))
        for endpoint in named["endpoints"]:
            self.assertRegex(endpoint["id"], ENDPOINT_ID)
        nameless, archive = self.make_report()
        self.assertEqual(facts(nameless["endpoints"], *members), facts(devices.summary["devices"], *members))
        for number, endpoint in enumerate(nameless["endpoints"], 1):
            self.assertEqual(endpoint["name"], f"endpoint {number}")
            self.assertRegex(endpoint["id"], r"^checksum [0-9a-f]{8}$")
        for entry in archive.namelist():
            text = archive.read(entry).decode()
            self.assertNotRegex(text, ENDPOINT_ID)
            for name in names:
                self.assertNotIn(name, text, entry)

    def make_report(self, *arguments):
        """Returns (report.json, the open ZIP file)."""
        file = self.session.folder / "report.zip"
        host = self.session.host("report", paths.to_windows(file), "--json", *arguments, name="report")
        self.assert_ended_well(host)
        archive = zipfile.ZipFile(io.BytesIO(file.read_bytes()))
        return json.loads(archive.read("report.json")), archive

    def test_c_player_example_is_heard_completely(self):
        speech = media.speech("speech")
        recorder = self.session.record()
        host = self.session.host(paths.to_windows(speech), program=paths.EXAMPLE_HOST)
        self.assert_ended_well(host, last_words=f"{media.unit_count(speech)} units sent, 0 refused")
        self.assertIn(f"{media.unit_count(speech)} units sent, 0 refused", host.output())
        self.assert_heard(recorder, speech)

    def folder_with(self, name, *patterns):
        """Makes a folder with copies of files from the build folder."""
        folder = self.session.folder / name
        folder.mkdir()
        for file in (file for pattern in patterns for file in paths.WINDOWS_BIN.glob(pattern)):
            shutil.copy2(file, folder)
        self.addCleanup(shutil.rmtree, folder)
        return folder

    def example(self, program):
        """Starts the example in the session's folder, with a file of only three units."""
        whole = media.speech("speech")
        short = media.write_units(self.session.folder / "short.aac", media.units(whole)[:3])
        return self.session.host(paths.to_windows(short), program=program, name=program.parent.name)

    def test_copied_build_folder_runs(self):
        elsewhere = self.folder_with("copied \u00e4\u6f22 folder", "velto-host.exe", "velto-host-example.exe", "*.dll")
        host = self.session.host("capabilities", "--json", program=elsewhere / "velto-host.exe")
        self.assert_ended_well(host)
        host = self.example(elsewhere / "velto-host-example.exe")
        self.assert_ended_well(host, last_words="3 units sent, 0 refused")
        self.assertIn("speaker1: type 0, 1 profile(s)", host.output())

    def test_dlls_in_current_folder_are_not_loaded(self):
        for dll in paths.WINDOWS_BIN.glob("*.dll"):
            shutil.copy2(dll, self.session.folder)
        for name, files in (("without the module", ["av*.dll", "sw*.dll"]), ("without FFmpeg", ["Lib*.dll"])):
            with self.subTest(name):
                alone = self.folder_with(name, "velto-host-example.exe", *files)
                host = self.example(alone / "velto-host-example.exe")
                self.assertEqual(host.wait(60), 3, host.output())
                self.assertIn("error 126", host.errors())

    def test_module_loads_from_other_folder(self):
        folder = self.folder_with("module \u00e4\u6f22 folder", "*.dll")
        host = self.session.host("capabilities", "--json", "--module",
                                 paths.to_windows(folder / "LibVeltoAudioHandler.dll"))
        self.assert_ended_well(host)
        self.assertIn(folder.name, host.summary["module"])

    def test_missing_module_is_reported(self):
        host = self.session.host("capabilities", "--module", paths.to_windows(self.session.folder / "none.dll"))
        self.assertEqual(host.wait(60), 3)
        self.assertTrue(host.errors().strip())


if __name__ == "__main__":
    session.main()
