"""Runs the unit tests natively under gcov, and counts the lines and branches of the module that they run.

Writes the figures into docs/reliability.md. Each line that no test runs needs its reason in scripts/uncovered.txt. The goals
apply to each folder.
"""

import contextlib
import os
import sys

import coverage_page
import excused_lines
import measuring

SCRIPT = measuring.Script("coverage", __doc__)
FOLDER = measuring.BUILD / "coverage"
SOURCES = "(support|handler|playback|render|capture|platform)/"


def count():
    for counts in FOLDER.rglob("*.gcda"):
        counts.unlink()
    SCRIPT.say("running the unit tests")
    measuring.run_logged(FOLDER / "test.log", "testing", ["ctest", "--preset", "coverage"], measuring.REPOSITORY)
    # Branches that only an exception takes, and those that the compiler cannot reach, are left out.
    measuring.run_logged(FOLDER / "gcovr.log", "counting",
                         ["gcovr", "--root", measuring.REPOSITORY, "--filter", f"{measuring.REPOSITORY}/{SOURCES}",
                          "-j", str(os.cpu_count()), "--exclude-throw-branches", "--exclude-unreachable-branches",
                          "--json", "coverage.json", "."], FOLDER)
    return coverage_page.read(FOLDER / "coverage.json")


def measure(options):
    measuring.prepare("coverage", setup=["--coverage"])
    with contextlib.nullcontext() if options.show else SCRIPT.failures_go_to("reliability.md"):
        counted = count()
    missed = list(coverage_page.missed(counted))
    text = coverage_page.text(counted, missed)
    SCRIPT.save(counted)
    if options.show:
        print(f"\n{text}", flush=True)
    else:
        SCRIPT.publish("reliability.md", text)
    for file, line in excused_lines.Excused().unneeded(counted["notRun"]):
        # Not a failure: only some runs reach the line.
        SCRIPT.say(f"{file}: this run needed no reason for `{line}`")
    SCRIPT.say(coverage_page.summary(counted))
    return SCRIPT.finish(missed)


if __name__ == "__main__":
    SCRIPT.parser.add_argument("--show", action="store_true", help="print the figures, but do not write the page")
    sys.exit(SCRIPT.run(measure))
