"""What gcovr counted, as tables in docs/reliability.md. Called by scripts/coverage."""

import datetime
import json
import pathlib
import sys

import section

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
EXPLAINED = REPOSITORY / "scripts" / "uncovered.txt"
LEAST_LINES = 95.0     # percent
LEAST_BRANCHES = 85.0  # percent


def read_reasons():
    """File -> (how many lines are explained, why they are not run)."""
    reasons = {}
    for line in EXPLAINED.read_text("utf-8").splitlines():
        if line and not line.startswith("#"):
            file, lines, why = (part.strip() for part in line.split("|"))
            reasons[file] = (int(lines), why)
    return reasons


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
    return ", ".join(str(a) if a == b else f"{a}-{b}" for a, b in found)


def percent(part, whole):
    return 100 * part / whole if whole else 100.0


def count(files):
    """Folder -> [lines, lines run, branches, branches run], and file -> lines that are not run."""
    totals, missing = {}, {}
    for entry in files:
        lines = [line for line in entry["lines"] if not line["gcovr/noncode"] and not line["gcovr/excluded"]]
        branches = [branch for line in lines for branch in line["branches"]]
        total = totals.setdefault(folder_of(entry["file"]), [0, 0, 0, 0])
        total[0] += len(lines)
        total[1] += sum(line["count"] > 0 for line in lines)
        total[2] += len(branches)
        total[3] += sum(branch["count"] > 0 for branch in branches)
        if not_run := [line["line_number"] for line in lines if line["count"] == 0]:
            missing[entry["file"]] = not_run
    return totals, missing


def row(name, lines, lines_run, branches, branches_run):
    return (f"| {name} | {lines_run} of {lines} | {percent(lines_run, lines):.1f} % "
            f"| {branches_run} of {branches} | {percent(branches_run, branches):.1f} % |")


def main():
    totals, missing = count(json.loads(pathlib.Path(sys.argv[1]).read_text("utf-8"))["files"])
    reasons = read_reasons()
    whole = [sum(column) for column in zip(*totals.values())]
    text = [f"Counted on {datetime.date.today().isoformat()}, in the native build.", "",
            "| folder | lines run | | branches run | |", "|---|---|---|---|---|"]
    text += [row(name, *totals[name]) for name in sorted(totals)]
    text += [row("all", *whole), "", "| not run | lines | why |", "|---|---|---|"]
    text += [f"| `{file}` | {ranges(missing[file])} | {reasons.get(file, (0, 'not explained'))[1]} |"
             for file in sorted(missing)]
    section.write("scripts/coverage", "\n".join(text) + "\n", "reliability.md")

    lines, lines_run, branches, branches_run = whole
    print(f"coverage: {percent(lines_run, lines):.1f} % of the lines, "
          f"{percent(branches_run, branches):.1f} % of the branches")
    missed = []
    for file, numbers in sorted(missing.items()):
        explained = reasons.get(file, (0, ""))[0]
        if len(numbers) > explained:
            missed.append(f"{file}: lines {ranges(numbers)} are not run, {EXPLAINED.name} explains {explained} of them")
    if percent(lines_run, lines) < LEAST_LINES:
        missed.append(f"at least {LEAST_LINES} % of the lines have to run")
    if percent(branches_run, branches) < LEAST_BRANCHES:
        missed.append(f"at least {LEAST_BRANCHES} % of the branches have to run")
    for reason in missed:
        print(f"coverage: missed: {reason}", file=sys.stderr)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
