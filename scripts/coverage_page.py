"""Formats gcovr's counts as tables for docs/reliability.md, and checks the goals."""

import json
import pathlib

import measuring

EXPLANATIONS = pathlib.Path(__file__).resolve().parent / "uncovered.txt"
MIN_LINES = 95.0     # percent
MIN_BRANCHES = 85.0  # percent
COUNTS = ("lines", "linesRun", "branches", "branchesRun")


def read_explanations():
    """Returns {file: (number of lines, reason)} for the lines that no test runs."""
    explanations = {}
    for line in EXPLANATIONS.read_text("utf-8").splitlines():
        if line and not line.startswith("#"):
            file, lines, reason = (part.strip() for part in line.split("|"))
            explanations[file] = (int(lines), reason)
    return explanations


def folder_of(file):
    parts = file.split("/")
    return "/".join(parts[:2]) if parts[0] == "platform" else parts[0]


def ranges(numbers):
    """[3, 4, 5, 9] -> '3-5, 9'."""
    found = []
    for number in numbers:
        if found and found[-1][1] == number - 1:
            found[-1][1] = number
        else:
            found.append([number, number])
    return ", ".join(str(first) if first == last else f"{first}-{last}" for first, last in found)


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


def text(counted):
    explanations = read_explanations()
    folders = [row(name, counts) for name, counts in sorted(counted["folders"].items())]
    files = [[f"`{file}`", ranges(numbers), explanations.get(file, (0, "not explained"))[1]]
             for file, numbers in sorted(counted["notRun"].items())]
    return "\n".join([f"Counted on {measuring.today()}, in the native build.", "",
                      *measuring.table(["folder", "lines run", "", "branches run", ""], folders + [row("all", counted["all"])]), "",
                      *measuring.table(["not run", "lines", "reason"], files)]) + "\n"


def summary(counted):
    whole = counted["all"]
    return (f"{percent(whole['linesRun'], whole['lines']):.1f} % of the lines, "
            f"{percent(whole['branchesRun'], whole['branches']):.1f} % of the branches")


def missed(counted):
    """The goals that are not met, as sentences."""
    explanations = read_explanations()
    for file, numbers in sorted(counted["notRun"].items()):
        explained = explanations.get(file, (0, ""))[0]
        if len(numbers) > explained:
            yield (f"{file}: no test runs lines {ranges(numbers)}; {EXPLANATIONS.name} explains {explained} of them. "
                   "Add a test or a reason")
    whole = counted["all"]
    if percent(whole["linesRun"], whole["lines"]) < MIN_LINES:
        yield f"tests must run at least {MIN_LINES} % of the lines"
    if percent(whole["branchesRun"], whole["branches"]) < MIN_BRANCHES:
        yield f"tests must run at least {MIN_BRANCHES} % of the branches"
