"""velto-host report and --version, under Wine without a sound server."""

import hashlib
import io
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest
import zipfile

import places
import wine

LOGS = places.REPOSITORY / "tests" / "host" / "logs"
BAD_FILE = 4
CONSENT = r"SOFTWARE\Microsoft\Windows\CurrentVersion\CapabilityAccessManager\ConsentStore\microphone"
USER, COMPUTER = "anna-test-user", "annas-computer"


class Report(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velto report ")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def report(self, *arguments, **variables):
        """Runs the command, and returns (report.json, the open ZIP file)."""
        file = self.folder / "report ä.zip"
        result = wine.run_host("report", wine.to_windows(file), "--json", *arguments, **variables)
        self.assertEqual(result.returncode, 0, result.stderr)
        archive = zipfile.ZipFile(io.BytesIO(file.read_bytes()))
        self.assertIsNone(archive.testzip())
        self.assertEqual(json.loads(result.stdout)["entries"], archive.namelist())
        return json.loads(archive.read("report.json")), archive

    def log_in_home(self):
        """Makes the module's log and an older one in a folder with the user's name."""
        home = self.folder / USER
        home.mkdir()
        older = (LOGS / "late-server.log").read_bytes()
        newer = (LOGS / "speaker-removed.log").read_bytes()
        for path in (wine.to_windows(home / "x"), f"\\\\{COMPUTER}\\share"):
            newer += f"2026-01-02 03:04:05.006 [1] [error] [NR] call failed: {path}(X::Y)\r\n".encode()
        (home / "module.1.log").write_bytes(older)
        (home / "module.log").write_bytes(newer)
        return home, older, newer

    def test_report_has_versions_checksums_and_capabilities(self):
        report, archive = self.report(VELTO_LOG_FILE=wine.to_windows(self.folder / "none.log"))
        self.assertEqual(sorted(archive.namelist()), ["README.txt", "report.json"])
        for part in archive.infolist():
            self.assertEqual(part.compress_type, zipfile.ZIP_DEFLATED)
        binaries = {each["name"]: each for each in report["binaries"]}
        self.assertEqual(sorted(binaries), sorted([places.MODULE, "velto-host.exe", *places.FFMPEG]))
        for name, facts in binaries.items():
            content = (places.BIN / name).read_bytes()
            self.assertEqual((facts["sha256"], facts["bytes"]), (hashlib.sha256(content).hexdigest(), len(content)), name)
        self.assertEqual(binaries[places.MODULE]["version"], os.environ.get("VELTO_VERSION", "1.0.0"))
        self.assertRegex(binaries["avcodec-59.dll"]["product"], r"^5\.1")
        dump = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", str(places.BIN / places.MODULE)],
                              check=True, capture_output=True, text=True).stdout
        build_id = dump.split("RSDS signature ")[1].split(" ")[0].upper() + "1"
        self.assertEqual(binaries[places.MODULE]["buildId"], build_id)
        self.assertEqual([device["id"] for device in report["capabilities"]],
                         ["speaker1", "ModemSpeaker1", "ModemMic1", "mic1"])
        version = subprocess.run(["wine", "--version"], check=True, capture_output=True, text=True).stdout.split()[0]
        self.assertTrue(report["system"].startswith(f"Wine {version.removeprefix('wine-')} as Windows "), report["system"])
        self.assertEqual(report["logs"], [])

    def report_of_user(self, log, before=(), after=()):
        """Runs the command as another user on another computer, between other commands. Returns (report.json, the open ZIP
        file)."""
        file, batch = log.parent / "report.zip", self.folder / "report.bat"
        # Wine sets the names of user and computer itself when it starts a program from outside.
        lines = [f"@set USERNAME={USER}", f"@set COMPUTERNAME={COMPUTER}", "@set VELTO_LOG_LEVEL=info",
                 f"@set VELTO_LOG_FILE={wine.to_windows(log)}", *before,
                 f'@"{wine.to_windows(wine.HOST)}" report "{wine.to_windows(file)}"', "@set result=%ERRORLEVEL%", *after,
                 "@exit %result%"]
        batch.write_text("".join(f"{line}\r\n" for line in lines))
        result = wine.run("cmd", "/c", wine.to_windows(batch))
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        archive = zipfile.ZipFile(file)
        for name in archive.namelist():
            for personal in (USER, COMPUTER):
                self.assertNotIn(personal, name)
                self.assertNotIn(personal.encode(), archive.read(name), name)
        return json.loads(archive.read("report.json")), archive

    def test_logs_are_complete_without_user_and_computer(self):
        home, older, newer = self.log_in_home()
        report, archive = self.report_of_user(home / "module.log")
        self.assertEqual([each["name"] for each in report["logs"]], ["module.1.log", "module.log"])
        self.assertEqual(archive.read("log/module.1.log"), older)
        user, computer = USER.encode(), COMPUTER.encode()
        self.assertEqual(archive.read("log/module.log"), newer.replace(user, b"<user>").replace(computer, b"<computer>"))
        self.assertIn("the loudspeaker was removed (0x88890004)", archive.read("explanation.txt").decode())
        self.assertTrue(report["settings"]["logFile"].endswith("\\<user>\\module.log"), report["settings"])
        self.assertEqual(report["settings"]["VELTO_LOG_LEVEL"], "info")

    def test_log_with_name_of_user_gets_another_name(self):
        shutil.copy(LOGS / "no-service.log", self.folder / f"{USER}.log")
        report, archive = self.report_of_user(self.folder / f"{USER}.log")
        self.assertEqual([each["name"] for each in report["logs"]], ["user.log"])
        self.assertIn("log/user.log", archive.namelist())
        self.assertTrue(report["settings"]["logFile"].endswith("\\<user>.log"), report["settings"])

    def test_report_has_consents_to_use_the_microphone(self):
        consents = {rf"HKCU\{CONSENT}": "Allow", rf"HKCU\{CONSENT}\NonPackaged": "Deny", rf"HKLM\{CONSENT}": "Ask"}
        settings = self.report_of_user(
            self.folder / "none.log", [f"@reg add {key} /v Value /d {value} /f" for key, value in consents.items()],
            [f"@reg delete {key} /v Value /f" for key in consents])[0]["settings"]
        self.assertEqual([settings[name] for name in ("microphoneConsent", "microphoneConsentOfPrograms",
                                                      "microphoneConsentOfPc")], list(consents.values()))

    def test_report_without_module_has_reason(self):
        alone = self.folder / "alone"
        alone.mkdir()
        for name in ("velto-host.exe", *places.FFMPEG):
            shutil.copy(places.BIN / name, alone)
        file = self.folder / "report.zip"
        result = wine.run(alone / "velto-host.exe", "report", wine.to_windows(file))
        self.assertEqual(result.returncode, 0, result.stderr)
        report = json.loads(zipfile.ZipFile(file).read("report.json"))
        self.assertIn("cannot load", report["capabilities"]["error"])
        self.assertIn("cannot open", report["binaries"][0]["error"])

    def test_unwritable_report_is_refused(self):
        result = wine.run_host("report", wine.to_windows(self.folder / "none" / "report.zip"), "--json")
        self.assertEqual(result.returncode, BAD_FILE)
        self.assertIn("cannot open", json.loads(result.stdout)["error"])

    def test_version_names_program_module_ffmpeg_and_system(self):
        result = wine.run_host("--version")
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.splitlines()
        self.assertRegex(lines[0], r"^velto-host \d+\.\d+\.\d+, commit ([0-9a-f]{12}\+?|unknown)$")
        self.assertRegex(lines[1], rf"^{places.MODULE} \d+\.\d+\.\d+, build id [0-9A-F]{{33,}}$")
        self.assertRegex(lines[2], r"^avcodec-59\.dll 59\.[\d.]+, FFmpeg 5\.1")
        self.assertEqual([line.split()[0] for line in lines[2:6]], list(places.FFMPEG))
        self.assertRegex(lines[6], r"^Wine \S+ as Windows \d+\.\d+\.\d+$")
        self.assertEqual(len(lines), 7)


class CommitHeader(unittest.TestCase):
    """cmake/commit.cmake, which writes the commit for velto-host --version."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velto commit ")
        self.addCleanup(folder.cleanup)
        self.repository, self.header = pathlib.Path(folder.name) / "repository", pathlib.Path(folder.name) / "commit.h"
        (self.repository / "inside").mkdir(parents=True)
        (self.repository / "file").write_text("one")

    def commit(self):
        for arguments in (("init", "--quiet"), ("add", "."), ("-c", "user.name=test", "-c", "user.email=test@example.org",
                                                              "commit", "--quiet", "-m", "test: begin")):
            subprocess.run(["git", "-C", str(self.repository), *arguments], check=True)
        return subprocess.run(["git", "-C", str(self.repository), "rev-parse", "HEAD"], check=True, capture_output=True,
                              text=True).stdout[:12]

    def name(self, folder=".", commit=""):
        script = places.REPOSITORY / "cmake" / "commit.cmake"
        # Without the ceiling, git would look for a repository in the folders above, too.
        subprocess.run(["cmake", f"-DOUTPUT={self.header}", f"-DSOURCE={self.repository / folder}", f"-DCOMMIT={commit}",
                        "-P", script], check=True, env=dict(os.environ, GIT_CEILING_DIRECTORIES=str(self.repository.parent)))
        return self.header.read_text().removeprefix('#define VELTO_COMMIT "').removesuffix('"\n')

    def test_commit_is_named_and_changes_are_marked(self):
        commit = self.commit()
        self.assertEqual(self.name(), commit)
        (self.repository / "file").write_text("two")
        self.assertEqual(self.name(), f"{commit}+")

    def test_sources_without_repository_of_their_own_have_no_commit(self):
        self.assertEqual(self.name(), "unknown")
        self.commit()
        self.assertEqual(self.name("inside"), "unknown")

    def test_given_name_counts(self):
        self.commit()
        self.assertEqual(self.name(commit="given"), "given")

    def test_equal_header_is_not_written_again(self):
        self.name()
        os.utime(self.header, (1, 1))
        self.name()
        self.assertEqual(self.header.stat().st_mtime, 1)


if __name__ == "__main__":
    unittest.main()
