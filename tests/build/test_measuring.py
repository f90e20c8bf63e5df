"""The measuring scripts' pages and goals, and scripts/check: a failure reaches the page, and each folder, line and check counts."""

import contextlib
import io
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest
from unittest import mock

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY / "scripts"))
import coverage_page
import excused_lines
import measuring

PAGE = """Before.
<!-- Measured by scripts/probe; do not edit by hand. -->
Old figures.
<!-- End of what scripts/probe measured. -->
After.
"""
SOURCE = """int Half(int value)
{
    if (value % 2 != 0) {
        return -1;
    }
    if (value == 0) {
        return -1;
    }
    return value / 2;
}
"""


class Folder(unittest.TestCase):
    """A repository with a page, a source and reasons for lines."""

    def setUp(self):
        self.root = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.root / "page.md").write_text(PAGE, "utf-8")
        (self.root / "support").mkdir()
        (self.root / "support" / "half.cpp").write_text(SOURCE, "utf-8")
        for name, folder in (("REPOSITORY", self.root), ("DOCS", self.root)):
            self.enterContext(mock.patch.object(measuring, name, folder))
        self.enterContext(mock.patch.object(measuring, "commit", lambda: "0123456789"))
        self.enterContext(contextlib.redirect_stdout(io.StringIO()))
        self.enterContext(contextlib.redirect_stderr(io.StringIO()))

    def page(self):
        return (self.root / "page.md").read_text("utf-8")

    def excused(self, reasons):
        file = self.root / "reasons.txt"
        file.write_text(reasons, "utf-8")
        return excused_lines.Excused(file)


class PageTest(Folder):
    def run_script(self, measure):
        script = measuring.Script("probe", "A probe.")
        with mock.patch.object(sys, "argv", ["probe"]):
            return script.run(lambda options: measure(script))

    def test_failing_run_writes_its_reason_and_commit_into_its_section(self):
        def measure(script):
            with script.failures_go_to("page.md"):
                raise RuntimeError(f"the host ended with 5; its log:\n{self.root}/build/host.log")

        self.assertEqual(self.run_script(measure), 1)
        self.assertNotIn("Old figures.", self.page())
        self.assertIn("commit 0123456789. **The run failed**: the host ended with 5; its log: build/host.log\n", self.page())

    def test_run_without_failure_leaves_the_page_unchanged(self):
        def measure(script):
            with script.failures_go_to("page.md"):
                return script.finish([])

        self.assertEqual(self.run_script(measure), 0)
        self.assertEqual(self.page(), PAGE)

    def test_section_names_its_commit_once(self):
        for text in ("Figures.\n", f"Figures {measuring.when()}.\n"):
            with self.subTest(text):
                measuring.write_section("page.md", "scripts/probe", text)
                self.assertIn("Figures", self.page())
                self.assertEqual(self.page().count("commit 0123456789"), 1)

    def test_verdict_names_each_missed_goal(self):
        self.assertEqual(measuring.verdict([]), "All goals are met.")
        self.assertEqual(measuring.verdict(iter(["too slow", "too large"])), "**Missed**: too slow; too large.")


class ExcusedLinesTest(Folder):
    NOT_RUN = {"support/half.cpp": [4, 7]}
    FIRST = "    return -1;  <- after  if (value % 2 != 0) {\n"
    SECOND = "    return -1;  <- after  if (value == 0) {\n"

    def test_line_with_a_reason_is_excused(self):
        excused = self.excused(f"support/half.cpp: no caller does this\n{self.FIRST}{self.SECOND}")
        self.assertEqual(list(excused.unexcused(self.NOT_RUN)), [])
        self.assertEqual(list(excused.stale()), [])
        self.assertEqual(dict(excused.reasons(self.NOT_RUN)), {("support/half.cpp", "no caller does this"): 2})

    def test_reason_for_a_line_does_not_excuse_another_line_with_the_same_text(self):
        excused = self.excused(f"support/half.cpp: no caller does this\n{self.FIRST}")
        self.assertEqual([line for _, line in excused.unexcused(self.NOT_RUN)], [self.SECOND.strip()])

    def test_reason_for_a_line_that_does_not_exist_is_reported(self):
        excused = self.excused("support/half.cpp: no caller does this\n    return -2;\n")
        self.assertEqual(len(list(excused.stale())), 1)

    def test_reason_for_an_ambiguous_line_is_reported(self):
        excused = self.excused("support/half.cpp: no caller does this\n    return -1;\n")
        self.assertEqual(len(list(excused.stale())), 1)


class CoverageGoalsTest(Folder):
    def missed(self, **counts):
        met = {"lines": 100, "linesRun": 95, "branches": 100, "branchesRun": 85}
        counted = {"folders": {"capture": dict.fromkeys(met, 10000), "support": {**met, **counts}}, "notRun": {}}
        with mock.patch.object(excused_lines.Excused, "stale", lambda self: []):
            return list(coverage_page.missed(counted))

    def test_folder_at_its_goals_misses_none(self):
        self.assertEqual(self.missed(), [])

    def test_folder_below_the_goal_for_lines_misses_it_although_another_folder_has_many(self):
        self.assertEqual(len(self.missed(linesRun=94)), 1)

    def test_folder_below_the_goal_for_branches_misses_it_although_another_folder_has_many(self):
        self.assertEqual(len(self.missed(branchesRun=84)), 1)


class CheckTest(Folder):
    CHECKS = ("test", "coverage", "lint")

    def run_checks(self, **exit_codes):
        """Runs scripts/check on scripts that only print their name. Returns the exit code and the lines of output."""
        (self.root / "scripts").mkdir()
        for name in ("check", "lib.sh"):
            shutil.copy(REPOSITORY / "scripts" / name, self.root / "scripts")
        for name in self.CHECKS:
            script = self.root / "scripts" / name
            script.write_text(f'#!/bin/sh\necho "{name} $*"\nexit {exit_codes.get(name, 0)}\n', "utf-8")
            script.chmod(0o755)
        done = subprocess.run([self.root / "scripts" / "check", "-R", "unit"], capture_output=True, text=True, check=False)
        return done.returncode, [line for line in done.stdout.splitlines() if line]

    def test_passes_when_all_checks_pass(self):
        code, lines = self.run_checks()
        self.assertEqual(code, 0)
        self.assertEqual(lines[:3], ["test -R unit", "coverage --show", "lint "])
        self.assertEqual([line.split(" after")[0] for line in lines[3:]],
                         ["check: tests: passed", "check: coverage: passed", "check: lint: passed"])

    def test_any_failure_fails_the_run_after_all_checks(self):
        for name in self.CHECKS:
            with self.subTest(name):
                code, lines = self.run_checks(**{name: 3})
                self.assertEqual(code, 1)
                self.assertEqual([line.split()[0] for line in lines[:3]], list(self.CHECKS))
                self.assertEqual(sum("failed with 3" in line for line in lines[3:]), 1)
            shutil.rmtree(self.root / "scripts")


if __name__ == "__main__":
    unittest.main()
