"""Runs the unit tests natively under gcov, and counts the lines and branches of the module that they run.

Writes the figures into docs/reliability.md. Each line that no test runs needs its reason in scripts/uncovered.txt.
"""

import sys

import coverage_page
import measuring

SCRIPT = measuring.Script("coverage", __doc__)
FOLDER = measuring.BUILD / "coverage"
SOURCES = "(support|handler|playback|render|capture|platform)/"


def measure(_options):
    measuring.prepare("coverage", setup=["--coverage"])
    for counts in FOLDER.rglob("*.gcda"):
        counts.unlink()
    SCRIPT.say("running the unit tests")
    measuring.run_logged(FOLDER / "test.log", "testing",
                         ["ctest", "--output-on-failure", "--no-tests=error", "-R", r"^coverage\.(unit|faults|platform)$"], FOLDER)
    # Branches that only an exception takes, and those that the compiler cannot reach, are left out.
    measuring.run_logged(FOLDER / "gcovr.log", "counting",
                         ["gcovr", "--root", measuring.REPOSITORY, "--filter", f"{measuring.REPOSITORY}/{SOURCES}",
                          "--exclude-throw-branches", "--exclude-unreachable-branches", "--json", "coverage.json", "."], FOLDER)
    counted = coverage_page.read(FOLDER / "coverage.json")
    SCRIPT.save(counted)
    SCRIPT.publish("reliability.md", coverage_page.text(counted))
    SCRIPT.say(coverage_page.summary(counted))
    return SCRIPT.finish(coverage_page.missed(counted))


if __name__ == "__main__":
    sys.exit(SCRIPT.run(measure))
