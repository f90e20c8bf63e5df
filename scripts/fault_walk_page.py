"""Formats the fault walk's counts as a table for docs/reliability.md.

With --check, compares the page with the counts in FOLDER, which contains a file for each scenario. The numbers of cases are
not compared: they depend on how often polling threads call the system, which differs from run to run.
"""

import argparse
import pathlib
import re
import sys

import measuring

SCENARIOS = {"speaker": "renderer", "table": "speaker, through the table", "microphone": "microphone"}
COLUMNS = {"calls": "calls", "failures": "error codes", "null": "success without object", "sizes": "zero and huge sizes",
           "successes": "other success codes", "hangs": "hangs", "cases": "cases", "lasting": "lasting cases",
           "findings": "unexpected results"}
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
    """Yields the scenarios whose counts differ from the page."""
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
        print(f"docs/reliability.md has different counts for these scenarios: {'; '.join(different)}. Run scripts/fault-walk.",
              file=sys.stderr)
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main())
