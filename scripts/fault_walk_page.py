"""What the fault walk counted, as a table of docs/reliability.md.

Called with --check, compares the page with the counts in FOLDER, a file for each scenario. The number of cases is not
compared: how often the threads that poll call the system differs from run to run.
"""

import argparse
import pathlib
import re
import sys

import measuring

SCENARIOS = {"speaker": "renderer", "table": "speaker, through the table", "microphone": "microphone"}
COLUMNS = {"calls": "calls", "failures": "error codes", "null": "no object", "sizes": "zero and huge sizes",
           "successes": "odd successes", "hangs": "hangs", "cases": "cases", "lasting": "of them lasting",
           "findings": "not as expected"}
SAME_IN_EACH_RUN = ("calls", "failures", "null", "sizes", "successes", "hangs")


def read(folder):
    """{scenario: {column: count}}"""
    return {name: {column: int(count)
                   for column, count in re.findall(r"(\w+) (\d+)", (folder / f"{name}.txt").read_text("utf-8"))}
            for name in SCENARIOS}


def text(walks):
    rows = [[SCENARIOS[name], *(str(walk[column]) for column in COLUMNS)] for name, walk in walks.items()]
    rows.append(["all", *(str(sum(walk[column] for walk in walks.values())) for column in COLUMNS)])
    return "\n".join(measuring.table(["scenario", *COLUMNS.values()], rows)) + "\n"


def differences(walks):
    """The scenarios whose counts are not those of the page."""
    page = (measuring.DOCS / "reliability.md").read_text("utf-8")
    for name, walk in walks.items():
        row = re.search(rf"^\| {re.escape(SCENARIOS[name])} \|(.*)\|$", page, re.MULTILINE)
        counts = dict(zip(COLUMNS, map(int, row[1].split("|")))) if row else {}
        if any(counts.get(column) != walk[column] for column in SAME_IN_EACH_RUN):
            yield SCENARIOS[name]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path, metavar="FOLDER")
    parser.add_argument("--check", action="store_true", required=True)
    different = list(differences(read(parser.parse_args().folder)))
    if different:
        print(f"docs/reliability.md has other counts for these scenarios: {'; '.join(different)}. Run scripts/fault-walk.",
              file=sys.stderr)
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main())
