"""Shared by the measuring scripts: arguments, preparation, messages, results, sections of pages, exit codes."""

import argparse
import contextlib
import datetime
import functools
import json
import os
import pathlib
import subprocess
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
BUILD = REPOSITORY / "build"
DOCS = REPOSITORY / "docs"
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "velto-audio-handler"

INTERRUPTED = 130  # the usual exit code after Ctrl-C
# The failures of a run. Other exceptions are mistakes in a script, and end it with their trace.
FAILURES = (RuntimeError, OSError, AssertionError, subprocess.SubprocessError)
EXIT_CODES = "Exit code: 0 if all goals are met, 1 if one is missed or the run fails, 2 for wrong arguments, 130 after Ctrl-C."


class Script:
    """The measuring script scripts/NAME. Its results go to build/NAME/results.json."""

    def __init__(self, name, description):
        self.name = name
        self.parser = argparse.ArgumentParser(prog=f"scripts/{name}", description=description, epilog=EXIT_CODES,
                                              formatter_class=argparse.RawDescriptionHelpFormatter)

    def say(self, text):
        print(f"{self.name}: {text}", flush=True)

    def warn(self, text):
        print(f"{self.name}: {text}", file=sys.stderr, flush=True)

    def run(self, function):
        """Calls function(options) and returns its exit code. If it raises an error, prints the reason and returns 1."""
        options = self.parser.parse_args()
        commit()  # before a long run, during which the sources may change
        try:
            return function(options)
        except KeyboardInterrupt:
            self.warn("interrupted")
            return INTERRUPTED
        except FAILURES as problem:
            self.warn(f"error: {problem}")
            return 1

    def folder(self):
        folder = BUILD / self.name
        folder.mkdir(parents=True, exist_ok=True)
        return folder

    def save(self, results):
        """Keeps the results as JSON, with the date, the commit and the machine."""
        file = self.folder() / "results.json"
        about = {"date": today(), "commit": commit(), "machine": machine()}
        file.write_text(json.dumps({**about, **results}, indent=2) + "\n", "utf-8")
        self.say(f"the results are in {file.relative_to(REPOSITORY)}")

    def publish(self, page, text, section=None):
        """Replaces the script's section of a page in docs/."""
        write_section(page, section or f"scripts/{self.name}", text)
        self.say(f"docs/{page} is updated")

    @contextlib.contextmanager
    def failures_go_to(self, page, section=None):
        """If the code inside fails, writes the reason into the section and raises the failure again."""
        try:
            yield
        except FAILURES as problem:
            self.publish(page, f"Run {when()}. **The run failed**: {without_paths(problem)}\n", section)
            raise

    def finish(self, missed):
        """Prints the goals that were missed, as sentences. Returns the exit code."""
        missed = list(missed)
        for reason in missed:
            self.warn(f"missed: {reason}")
        return 1 if missed else 0


def prepare(*builds, setup=(), options=()):
    """Runs scripts/setup and scripts/build, which print their own errors. Exits if one of them fails."""
    if setup:
        _run_script("setup", *setup)
    if builds:
        _run_script("build", *builds, *options)


def _run_script(name, *arguments):
    code = subprocess.run([REPOSITORY / "scripts" / name, *arguments], check=False).returncode
    if code != 0:
        sys.exit(code)


def run_logged(log, what, command, folder):
    """Runs a command with its output in a log. If it fails, prints the end of the log and raises RuntimeError."""
    with open(log, "w", encoding="utf-8") as out:
        code = subprocess.run(command, cwd=folder, stdout=out, stderr=out, check=False).returncode
    if code != 0:
        lines = log.read_text("utf-8", "replace").splitlines()[-30:]
        print("\n".join(f"    | {line}" for line in lines), file=sys.stderr)
        raise RuntimeError(f"{what} failed; its log: {log}")


def write_section(page, source, text):
    """Replaces the text between the two marks that name its source. The text ends with a newline. Adds the commit, if the text
    does not name it."""
    path = DOCS / page
    begin = f"<!-- Measured by {source}; do not edit by hand. -->"
    end = f"<!-- End of what {source} measured. -->"
    before, begun, rest = path.read_text("utf-8").partition(begin)
    _, ended, after = rest.partition(end)
    if not begun or not ended:
        raise RuntimeError(f'docs/{page} has no section of {source}: add the lines "{begin}" and "{end}"')
    if commit() not in text:
        text = f"Latest run {when()}.\n\n{text}"
    path.write_text(f"{before}{begin}\n{text}{end}{after}", "utf-8")


def table(columns, rows):
    """Returns the lines of a Markdown table. `columns` are the titles of its columns."""
    return [f"| {' | '.join(columns)} |", "|---" * len(columns) + "|", *(f"| {' | '.join(row)} |" for row in rows)]


def section(lines):
    """Prints what was measured and returns it, as the text of a section."""
    text = "\n".join([measured(), "", *lines]) + "\n"
    print(f"\n{text}", flush=True)
    return text


def verdict(missed):
    """Returns the last line of a section whose figures have goals."""
    missed = list(missed)
    return f"**Missed**: {'; '.join(missed)}." if missed else "All goals are met."


def without_paths(problem):
    """Returns an error's text as one line, without the paths of this machine."""
    text = " ".join(str(problem).split())
    for folder in (REPOSITORY, CACHE, pathlib.Path.home()):
        text = text.replace(f"{folder}/", "")
    return text


def today():
    return datetime.date.today().isoformat()


def _git(*arguments):
    """Returns the output of git, or "" if it fails: the sources may have been copied without their history."""
    try:
        return subprocess.run(["git", "-C", REPOSITORY, *arguments], capture_output=True, text=True, check=True).stdout.strip()
    except (OSError, subprocess.SubprocessError):
        return ""


@functools.cache
def commit():
    """Returns the commit that was checked out at the first call. Changed pages do not count as changes."""
    name = _git("rev-parse", "--short=10", "HEAD")
    if not name:
        return "of unknown name"
    return f"{name}, with changes" if _git("status", "--porcelain", "--", ".", ":!docs", ":!*.md") else name


def when():
    """'on 2026-11-21, commit 0123456789'"""
    return f"on {today()}, commit {commit()}"


def machine():
    """Returns the processor's name, the number of processors, and the version of Wine."""
    names = [line.partition(":")[2].strip() for line in pathlib.Path("/proc/cpuinfo").read_text("utf-8").splitlines()
             if line.startswith("model name")]
    wine = subprocess.run(["wine", "--version"], capture_output=True, text=True, check=True).stdout.split()[0]
    return f"{names[0] if names else 'unknown processor'}, {os.cpu_count()} processors, {wine}"


def measured():
    """Returns the first line of a section."""
    return f"Measured {when()}: {machine()}."


def load_average():
    """Returns the load average of the last minute."""
    return os.getloadavg()[0]
