"""What the fault walk counted, as a table in docs/reliability.md.

    fault_walk_page.py FOLDER           writes the table; called by scripts/fault-walk
    fault_walk_page.py FOLDER --check   1 when the page names other calls or faults than were walked

FOLDER holds a file for each road. How many cases there are may differ by a few: the threads that poll
do not make the same number of calls each time.
"""

import pathlib
import re
import sys

import section

ROADS = {"speaker": "renderer", "table": "speaker, through the table", "microphone": "microphone"}
COLUMNS = {"calls": "calls", "failures": "error codes", "null": "no object", "sizes": "zero and huge sizes",
           "successes": "odd successes", "hangs": "hangs", "cases": "cases", "lasting": "of them lasting",
           "findings": "not as expected"}
SURE = ["calls", "failures", "null", "sizes", "successes", "hangs"]


def read(folder):
    return {road: {name: int(count) for name, count in re.findall(r"(\w+) (\d+)", (folder / f"{road}.txt").read_text("utf-8"))}
            for road in ROADS}


def table(walks):
    lines = [f"| road | {' | '.join(COLUMNS.values())} |", "|---" * (len(COLUMNS) + 1) + "|"]
    lines += [f"| {ROADS[road]} | {' | '.join(str(walk[name]) for name in COLUMNS)} |" for road, walk in walks.items()]
    lines.append(f"| all | {' | '.join(str(sum(walk[name] for walk in walks.values())) for name in COLUMNS)} |")
    return "\n".join(lines) + "\n"


def differs(walks):
    page = (section.DOCS / "reliability.md").read_text("utf-8")
    for road, walk in walks.items():
        row = re.search(rf"^\| {re.escape(ROADS[road])} \|(.*)\|$", page, re.MULTILINE)
        counts = dict(zip(COLUMNS, map(int, row[1].split("|")))) if row else {}
        if any(counts.get(name) != walk[name] for name in SURE):
            print(f"docs/reliability.md does not tell what was walked ({road}): run scripts/fault-walk", file=sys.stderr)
            return 1
    return 0


def main():
    walks = read(pathlib.Path(sys.argv[1]))
    if "--check" in sys.argv:
        return differs(walks)
    section.write("scripts/fault-walk", table(walks), "reliability.md")
    print(table(walks))
    return 0


if __name__ == "__main__":
    sys.exit(main())
