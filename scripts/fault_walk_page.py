"""Formats what the fault walk has found: its counts for docs/reliability.md, its table of faults for docs/faults.md.

With --check, compares the pages with FOLDER, which contains the files of each scenario. The numbers of cases are not
compared: they depend on how often polling threads call the system, which differs from run to run.
"""

import argparse
import pathlib
import re
import sys

import measuring

SCENARIOS = {"speaker": "renderer", "table": "speaker, through the table",
             "microphone_device": "microphone, device before registration",
             "microphone_registration": "microphone, registration before device"}
COLUMNS = {"calls": "calls", "failures": "error codes", "null": "success without object", "sizes": "zero and huge sizes",
           "successes": "other success codes", "hangs": "hangs", "cases": "cases", "lasting": "lasting cases",
           "findings": "unexpected results"}
SAME_IN_EACH_RUN = ("calls", "failures", "null", "sizes", "successes", "hangs")

# Sections of docs/faults.md, by the file of rows that fills each.
FAULT_TABLES = {"speaker": "the walk of the renderer", "microphone": "the walk of the microphone"}
FAULT_COLUMNS = ["when", "call", "it returns", "log line", "what brings the sound back"]


def read(folder):
    """{scenario: {column: count}}"""
    return {name: {column: int(count)
                   for column, count in re.findall(r"(\w+) (\d+)", (folder / f"{name}.txt").read_text("utf-8"))}
            for name in SCENARIOS}


def text(walks):
    rows = [[SCENARIOS[name], *(str(walk[column]) for column in COLUMNS)] for name, walk in walks.items()]
    rows.append(["all", *(str(sum(walk[column] for walk in walks.values())) for column in COLUMNS)])
    return "\n".join(measuring.table(["scenario", *COLUMNS.values()], rows)) + "\n"


def fault_table(folder, name):
    """The rows that the walk looks its cases up in, as a Markdown table. Log lines are code; $ starts a placeholder."""
    rows = []
    for row in (folder / f"{name}.rows").read_text("utf-8").splitlines():
        moment, call, result, line, remedy = row.split("\t")
        tag, _, message = line.partition(": ")
        # AudioCapture::Prepare: text. A tag never contains a colon followed by a space.
        rows.append([moment, call, result, f"`{message}` ({tag})" if line else "none", remedy])
    return "\n".join(measuring.table(FAULT_COLUMNS, rows)) + "\n"


def publish_fault_tables(folder):
    for name, section in FAULT_TABLES.items():
        measuring.write_section("faults.md", section, fault_table(folder, name))


def differences(folder):
    """Yields what differs from the pages."""
    walks = read(folder)
    page = (measuring.DOCS / "reliability.md").read_text("utf-8")
    for name, walk in walks.items():
        row = re.search(rf"^\| {re.escape(SCENARIOS[name])} \|(.*)\|$", page, re.MULTILINE)
        counts = dict(zip(COLUMNS, map(int, row[1].split("|")))) if row else {}
        if any(counts.get(column) != walk[column] for column in SAME_IN_EACH_RUN):
            yield f"docs/reliability.md, counts of {SCENARIOS[name]}"
    faults = (measuring.DOCS / "faults.md").read_text("utf-8")
    for name, section in FAULT_TABLES.items():
        if f"\n{fault_table(folder, name)}<!-- End of what {section} measured. -->" not in faults:
            yield f"docs/faults.md, {section}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path, metavar="FOLDER")
    parser.add_argument("--check", action="store_true", required=True)
    different = list(differences(parser.parse_args().folder))
    if different:
        print(f"The fault walk differs from these pages: {'; '.join(different)}. Run scripts/fault-walk.", file=sys.stderr)
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main())
