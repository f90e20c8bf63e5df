"""Results of scripts/mutants: counts, survivors, the section of docs/reliability.md."""

import subprocess
import tomllib

import measuring
from mutants_places import KINDS
from mutants_tests import CAUGHT

ACCEPTED = measuring.REPOSITORY / "tests" / "mutants" / "survivors.toml"
GOAL = 95.0  # percent
SURVIVED = ("survived", "not reached")
COLUMNS = ("places", "caught", "of them crashed", "of them hung", "survived", "of them not reached", "unbuildable", "score")


def read_accepted(file=ACCEPTED):
    """The survivors that are explained: {file, line, change (if the line has several), reason, test (if there is one)}."""
    if not file.exists():
        return []
    entries = tomllib.loads(file.read_text("utf-8")).get("survivor", [])
    for entry in entries:
        unknown = set(entry) - {"file", "line", "change", "reason", "test"}
        missing = {"file", "line", "reason"} - set(entry)
        if unknown or missing:
            raise RuntimeError(f"{file.name}: an entry has unknown fields {sorted(unknown)} or lacks {sorted(missing)}: {entry}")
    return entries


def explains(entry, mutant):
    return entry["file"] == mutant.file and entry["line"] == mutant.content and entry.get("change", mutant.change) == mutant.change


def folder_of(mutant):
    parts = mutant.file.split("/")
    return "/".join(parts[:2]) if parts[0] == "platform" else parts[0]


def counts(outcomes):
    return {"places": len(outcomes), "caught": sum(one in CAUGHT for one in outcomes), "of them crashed": outcomes.count("crashed"),
            "of them hung": outcomes.count("hung"), "survived": sum(one in SURVIVED for one in outcomes),
            "of them not reached": outcomes.count("not reached"), "unbuildable": outcomes.count("unbuildable")}


def score(counted):
    """The percentage caught, of the mutants that build; None if none of them builds."""
    built = counted["caught"] + counted["survived"]
    return 100 * counted["caught"] / built if built else None


def percent(value):
    return "" if value is None else f"{value:.1f} %"


class Report:
    """The results of the chosen mutants. `results`: {key: Result}."""

    def __init__(self, mutants, results):
        self.mutants = [mutant for mutant in mutants if mutant.key in results]
        self.results = results
        self.accepted = read_accepted()
        self.survivors = [mutant for mutant in self.mutants if results[mutant.key].outcome in SURVIVED]
        self.total = counts([results[mutant.key].outcome for mutant in self.mutants])

    def rows(self, name_of, names):
        rows = []
        for name in [*names, None]:
            outcomes = [self.results[mutant.key].outcome for mutant in self.mutants if name is None or name_of(mutant) == name]
            if outcomes:
                counted = counts(outcomes)
                rows.append([name or "all", *(str(counted[column]) for column in COLUMNS[:-1]), percent(score(counted))])
        return rows

    def tables(self):
        folders = sorted({folder_of(mutant) for mutant in self.mutants})
        return [*measuring.table(["folder", *COLUMNS], self.rows(folder_of, folders)), "",
                *measuring.table(["kind", *COLUMNS], self.rows(lambda mutant: mutant.kind, KINDS))]

    def explanation(self, mutant):
        return next((entry for entry in self.accepted if explains(entry, mutant)), None)

    def stale(self):
        return [entry for entry in self.accepted if not any(explains(entry, mutant) for mutant in self.survivors)]

    def survivor_lines(self):
        for mutant in self.survivors:
            result = self.results[mutant.key]
            entry = self.explanation(mutant)
            reason = f"accepted: {entry['reason']}" if entry else \
                "no test reaches it" if result.outcome == "not reached" else f"{result.tests} tests reach it"
            yield f"{mutant.key} {mutant.file}:{mutant.line}: {mutant.kind}: {mutant.change}\n    | {mutant.content}\n    {reason}"

    def missed(self, is_all):
        reached = score(self.total)
        if reached is not None and reached < GOAL:
            yield f"tests must catch at least {GOAL} % of the mutants that build, and catch {percent(reached)}"
        if is_all:
            for mutant in self.survivors:
                if self.explanation(mutant) is None:
                    yield f"{mutant.file}:{mutant.line} survives without a reason in {ACCEPTED.name}: {mutant.change}"
            for entry in self.stale():
                yield f"{ACCEPTED.name} has an entry that matches no survivor: {entry['file']}: {entry['line']}"

    def section(self, not_tried):
        survivors = []
        for mutant in self.survivors:
            entry = self.explanation(mutant)
            reason = "not explained" if entry is None else entry["reason"] + (f" Caught by `{entry['test']}`." if "test" in entry else "")
            survivors.append([f"`{mutant.file}`", code(mutant.content), code(mutant.change), reason.replace("|", "\\|")])
        return "\n".join([f"Run on {measuring.today()} at commit {commit()}: score {percent(score(self.total))}.", "", *self.tables(), "",
                          *not_tried, "", *measuring.table(["survivor", "line", "change", "reason"], survivors)]) + "\n"


def code(text):
    """A code span of a table. A span between double backquotes can contain single ones."""
    text = text.replace("|", "\\|")
    return f"`` {text} ``" if "`" in text else f"`{text}`"


def commit():
    """The commit, and whether files differ from it."""
    def git(*arguments):
        return subprocess.run(["git", *arguments], cwd=measuring.REPOSITORY, capture_output=True, text=True, check=True).stdout.strip()

    return git("rev-parse", "--short=10", "HEAD") + (" with changes" if git("status", "--porcelain", "-uno") else "")
