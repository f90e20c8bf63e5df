"""A script's own place in a page of docs/, between two marks that name the script."""

import pathlib

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"


def write(script, text, page="performance.md"):
    """Puts the text, which ends with a newline, between the two marks."""
    path = DOCS / page
    begin = f"<!-- Measured by {script}; do not edit by hand. -->"
    end = f"<!-- End of what {script} measured. -->"
    before, begun, rest = path.read_text("utf-8").partition(begin)
    _, ended, after = rest.partition(end)
    if not begun or not ended:
        raise RuntimeError(f"{path} has no place for {script}")
    path.write_text(f"{before}{begin}\n{text}{end}{after}", "utf-8")
