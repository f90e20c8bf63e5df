#!/usr/bin/python3
"""velto-host check certifies the shipped module: levels 1 to 7, the reports, and whether a report belongs to a DLL."""

import json
import shutil
import time
import xml.etree.ElementTree as ElementTree

from rig import damage, paths, processes, schemas, session

LEVEL = 7
TIMEOUT_S = 900
PASSED, BROKEN_CLAUSE = 0, 6  # exit codes of velto-host check
NOT_OF_THESE_BYTES = 6        # of velto-host check --verify
LISTENING = "listen."         # checks that hear the sound, where the system records what it plays: Wine 10 does, Wine 8 not
# They need another state of the system than this session's, or such a system.
MAY_BE_SKIPPED = ("speaker.without-loudspeaker", "microphone.without-microphone", LISTENING)


class ShippedModule(session.SystemTest):
    MICROPHONES = (session.MICROPHONE_48K,)
    HEARS_CHECKS = True

    def setUp(self):
        super().setUp()
        self.reports = {kind: self.session.folder / f"report.{kind}" for kind in ("json", "xml", "html")}

    def check(self, *arguments, expect=PASSED, timeout_s=120):
        host = self.session.host("check", *arguments, "--json")
        code = host.wait(timeout_s)
        if code == BROKEN_CLAUSE:
            self.refuse_stalled(host.summary.get("measured", {}).get("results", []), time.time())
        self.assertEqual(code, expect, f"{host.errors()[-6000:]}\n{host.last_output()}")
        return host

    def refuse_stalled(self, results, ended):
        """Raises SoundDamaged, which repeats the test, if only checks failed that hear the sound, and the machine stalled during
        each of them. results: the checks in their order, with the time of each; the last one ended at the wall time `ended`."""
        places = []
        for result in reversed(results):
            began = ended - result["seconds"]
            if result["observed"]:
                places.append(damage.Place(began, ended, result["name"]))
            ended = began
        if all(place.what.startswith(LISTENING) for place in places):
            damage.refuse_spoiled(places, self.stalls(), accepted=0)

    def make_reports(self, level, timeout_s):
        options = zip(("--report-json", "--report-junit", "--report-html"), map(paths.to_windows, self.reports.values()))
        self.check("--level", level, *(word for option in options for word in option), timeout_s=timeout_s)
        return json.loads(self.reports["json"].read_text("utf-8"))

    def test_module_passes_all_checks_and_reports_say_so(self):
        report = self.make_reports(LEVEL, TIMEOUT_S)
        schemas.check(report)
        self.assertEqual((report["verdict"], report["level"], report["levelReached"]), ("passed", LEVEL, LEVEL))
        outcomes = {result["name"]: result["outcome"] for result in report["results"]}
        skipped = [name for name, outcome in outcomes.items() if outcome == "skipped"]
        for result in report["measured"]["results"]:
            for warning in result["warnings"]:
                print(f"  {result['name']} warns: {warning}", flush=True)
        print(f"  {len(outcomes)} checks in {report['measured']['seconds']:.0f} s, skipped: {', '.join(skipped)}", flush=True)
        self.assertEqual([name for name in skipped if not name.startswith(MAY_BE_SKIPPED)], [])
        self.assertEqual({result["level"] for result in report["results"]}, set(range(1, LEVEL + 1)))
        cases = ElementTree.parse(self.reports["xml"]).getroot().iter("testcase")
        self.assertEqual([case.get("name") for case in cases], list(outcomes))
        self.assertIn("LibVeltoAudioHandler.dll", self.reports["html"].read_text("utf-8"))

    def test_report_belongs_to_its_bytes_only(self):
        self.make_reports(1, 120)
        report = paths.to_windows(self.reports["json"])
        self.assertTrue(self.check("--verify", report).summary["isOfTheseBytes"])
        folder = self.session.folder / "other"
        folder.mkdir()
        self.addCleanup(shutil.rmtree, folder)
        for dll in paths.WINDOWS_BIN.glob("*.dll"):
            shutil.copy2(dll, folder)
        module = folder / paths.MODULE.name
        copy = self.check("--verify", report, "--module", paths.to_windows(module))
        self.assertTrue(copy.summary["isOfTheseBytes"])
        for name in (paths.MODULE.name, next(folder.glob("avcodec-*")).name):
            with self.subTest(name):
                original = (folder / name).read_bytes()
                (folder / name).write_bytes(original + b"\0")
                other = self.check("--verify", report, "--module", paths.to_windows(module), expect=NOT_OF_THESE_BYTES)
                self.assertFalse(other.summary["isOfTheseBytes"])
                (folder / name).write_bytes(original)

    def test_runs_with_one_seed_differ_in_measured_values_only(self):
        first, second = (self.make_reports(3, TIMEOUT_S) for _ in range(2))
        for report in (first, second):
            self.assertTrue(report.pop("measured"))
        self.assertEqual(first, second)

    def test_report_names_commit_of_its_run_if_log_has_earlier_lines(self):
        commit = self.make_reports(1, 120)["moduleCommit"]
        self.assertTrue(commit)
        line = "2026-03-07 04:05:06.007 [4711] [info] [Logging] LibVeltoAudioHandler 1.0.0, commit 0123456789ab, release\n"
        log = self.session.folder / "user.log"
        for lines in (1, 50000):  # the module renames a log of more than 5 MiB, and begins a new one
            with self.subTest(lines):
                log.write_text(line * lines, "ascii")
                processes.run(["wine", paths.HOST, "check", "--level", "1",
                               "--report-json", paths.to_windows(self.reports["json"])], timeout_s=120,
                              env=dict(self.session.prefix.environment, VELTO_LOG_FILE=paths.to_windows(log)))
                self.assertEqual(json.loads(self.reports["json"].read_text("utf-8"))["moduleCommit"], commit)

    def test_list_names_checks_with_clauses(self):
        listed = self.check("--list").summary["checks"]
        self.assertEqual(len({each["name"] for each in listed}), len(listed))
        only = self.check("--list", "--only", "OWN-3").summary["checks"]
        self.assertTrue(only)
        for each in only:
            self.assertIn("OWN-3", each["clauses"])


if __name__ == "__main__":
    session.main()
