"""A script's own place in docs/performance.md."""

import pathlib

PAGE = pathlib.Path(__file__).resolve().parent.parent / "docs" / "performance.md"


def write(script, text):
    """Puts the text between the two marks that name the script."""
    begin = f"<!-- Measured by {script}; do not edit by hand. -->"
    end = f"<!-- End of what {script} measured. -->"
    before, begun, rest = PAGE.read_text("utf-8").partition(begin)
    _, ended, after = rest.partition(end)
    if not begun or not ended:
        raise RuntimeError(f"{PAGE} has no place for {script}")
    PAGE.write_text(f"{before}{begin}\n{text}{end}{after}", "utf-8")
