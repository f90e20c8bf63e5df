"""Formats gcovr's counts as tables for docs/reliability.md, and checks the goals."""

import json

import excused_lines
import measuring

MIN_LINES = 95.0     # percent, of each folder
MIN_BRANCHES = 85.0  # percent, of each folder
COUNTS = ("lines", "linesRun", "branches", "branchesRun")


def folder_of(file):
    parts = file.split("/")
    return "/".join(parts[:2]) if parts[0] == "platform" else parts[0]


def percent(part, whole):
    return 100 * part / whole if whole else 100.0


def read(path):
    """Returns the counts of each folder and of all folders, and the lines of each file that no test runs."""
    folders, not_run = {}, {}
    for entry in json.loads(path.read_text("utf-8"))["files"]:
        lines = [line for line in entry["lines"] if not line["gcovr/noncode"] and not line["gcovr/excluded"]]
        branches = [branch for line in lines for branch in line["branches"]]
        counts = (len(lines), sum(line["count"] > 0 for line in lines),
                  len(branches), sum(branch["count"] > 0 for branch in branches))
        total = folders.setdefault(folder_of(entry["file"]), dict.fromkeys(COUNTS, 0))
        for name, count in zip(COUNTS, counts):
            total[name] += count
        if numbers := [line["line_number"] for line in lines if line["count"] == 0]:
            not_run[entry["file"]] = numbers
    whole = {name: sum(folder[name] for folder in folders.values()) for name in COUNTS}
    return {"folders": folders, "all": whole, "notRun": not_run}


def row(name, counts):
    return [name, f"{counts['linesRun']} of {counts['lines']}", f"{percent(counts['linesRun'], counts['lines']):.1f} %",
            f"{counts['branchesRun']} of {counts['branches']}", f"{percent(counts['branchesRun'], counts['branches']):.1f} %"]


def text(counted, missed):
    folders = [row(name, counts) for name, counts in sorted(counted["folders"].items())]
    reasons = [[f"`{file}`", str(lines), reason]
               for (file, reason), lines in sorted(excused_lines.Excused().reasons(counted["notRun"]).items())]
    return "\n".join([f"Counted {measuring.when()}, in the native build.", "",
                      *measuring.table(["folder", "lines run", "", "branches run", ""], folders + [row("all", counted["all"])]), "",
                      *measuring.table(["not run", "lines", "reason"], reasons), "", measuring.verdict(missed)]) + "\n"


def summary(counted):
    whole = counted["all"]
    return (f"{percent(whole['linesRun'], whole['lines']):.1f} % of the lines, "
            f"{percent(whole['branchesRun'], whole['branches']):.1f} % of the branches")


def missed(counted):
    """The goals that are not met, as phrases."""
    excused = excused_lines.Excused()
    yield from excused.stale()
    for file, line in excused.unexcused(counted["notRun"]):
        yield f"{file}: no test runs `{line}`, and {excused_lines.FILE.name} does not say why"
    for name, counts in sorted(counted["folders"].items()):
        for what, done, least in (("lines", "linesRun", MIN_LINES), ("branches", "branchesRun", MIN_BRANCHES)):
            found = percent(counts[done], counts[what])
            if found < least:
                yield f"{name}: tests run {found:.1f} % of the {what}; the goal is at least {least:g} %"
