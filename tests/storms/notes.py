"""What the tests of this folder measure, kept for the page that scripts/storms writes."""

import json

from rig import paths

FILE = paths.RESULTS / "storms.jsonl"


def write(kind, **figures):
    with open(FILE, "a") as out:
        out.write(json.dumps({"kind": kind, **figures}) + "\n")


def read(kind):
    lines = FILE.read_text().splitlines() if FILE.exists() else []
    return [line for line in map(json.loads, lines) if line["kind"] == kind]
