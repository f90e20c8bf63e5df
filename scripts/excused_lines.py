"""The lines of the module that need no test, from uncovered.txt. They are named by their text: numbers change with each edit."""

import collections
import pathlib

import measuring

FILE = pathlib.Path(__file__).resolve().parent / "uncovered.txt"
NOT_EXCUSED = "no reason in scripts/uncovered.txt"
AFTER = "  <- after  "  # separates a line from the line before it


def named_lines(file):
    """Returns the names of a file's lines: {number: name}. A name is the line's text, followed by as many of the
    lines before it as make it unique."""
    lines = [line.strip() for line in (measuring.REPOSITORY / file).read_text("utf-8").splitlines()]
    names = {}
    ambiguous = range(1, len(lines) + 1)
    context = 0
    while ambiguous:
        texts = {number: AFTER.join(reversed(lines[max(0, number - 1 - context):number])) for number in ambiguous}
        times = collections.Counter(texts.values())
        names.update({number: text for number, text in texts.items() if times[text] == 1})
        ambiguous = [number for number, text in texts.items() if times[text] > 1]
        context += 1
    return names


class Excused:
    """Reasons by file and line. Each entry of uncovered.txt excuses one line."""

    def __init__(self, path=FILE):
        self._reasons = collections.defaultdict(dict)  # {file: {name of a line: reason}}
        file = reason = None
        for line in path.read_text("utf-8").splitlines():
            if not line.strip() or line.startswith("#"):
                continue
            if line.startswith(" "):
                self._reasons[file][line.strip()] = reason
            else:
                file, _, reason = (part.strip() for part in line.partition(":"))

    def stale(self):
        """Yields a phrase for each entry that names no line or several lines."""
        for file, reasons in self._reasons.items():
            if not (measuring.REPOSITORY / file).exists():
                yield f"{FILE.name} names {file}, which does not exist"
                continue
            times = collections.Counter(named_lines(file).values())
            for name in reasons:
                if times[name] != 1:
                    yield f"{FILE.name} has `{name}`, which does not name exactly one line of {file}"

    def unexcused(self, not_run):
        """Yields file and line of each line that is neither run nor excused."""
        for file, numbers in sorted(not_run.items()):
            names = named_lines(file)
            for number in numbers:
                if names[number] not in self._reasons[file]:
                    yield file, names[number]

    def unneeded(self, not_run):
        """Yields file and line of each entry whose line a test has run."""
        for file, reasons in self._reasons.items():
            names = named_lines(file)
            missing = {names[number] for number in not_run.get(file, [])}
            yield from ((file, name) for name in reasons if name not in missing)

    def reasons(self, not_run):
        """Counts the lines that are not run: {(file, reason): number}."""
        counts = collections.Counter()
        for file, numbers in not_run.items():
            names = named_lines(file)
            counts.update((file, self._reasons[file].get(names[number], NOT_EXCUSED)) for number in numbers)
        return counts
