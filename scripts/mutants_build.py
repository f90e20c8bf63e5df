"""Copies of the module's sources with a switch at each place, and the test programs that are built from them."""

import concurrent.futures
import dataclasses
import fnmatch
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

import lint_commands
import measuring
import mutants_places as places

FOLDERS = ("capture", "handler", "platform", "playback", "render", "support")
LEFT_OUT = "platform/windows-subset"
FOLDER = measuring.BUILD / "mutants"
TREE = FOLDER / "tree"
SANITIZERS = ("asan", "tsan")  # presets
TARGETS = ("velto-unit-tests", "velto-platform-tests")
TOOLS = [pathlib.Path(places.__file__), pathlib.Path(__file__), measuring.REPOSITORY / "tests" / "mutants" / "mutant.h"]
NUMBERS_PER_FILE = 1000
MAX_ROUNDS = 25


def sources():
    """{name: path} of the sources and headers of the module."""
    found = [path for folder in FOLDERS for path in (measuring.REPOSITORY / folder).rglob("*") if path.suffix in (".h", ".cpp")]
    named = {str(path.relative_to(measuring.REPOSITORY)): path for path in sorted(found)}
    return {name: path for name, path in named.items() if not name.startswith(f"{LEFT_OUT}/")}


def digest(*parts):
    return hashlib.sha256(b"\0".join(part.encode() if isinstance(part, str) else part for part in parts)).hexdigest()


def included(name, files):
    """The module's headers that a source includes, directly or not."""
    found, left = set(), [name]
    while left:
        text = files[left.pop()].read_text("latin-1")
        for header in re.findall(r'^\s*#\s*include\s+"([^"]+)"', text, re.MULTILINE):
            for candidate in (header, f"platform/{header}"):
                if candidate in files and candidate not in found:
                    found.add(candidate)
                    left.append(candidate)
    return found


def commands():
    """{path: arguments for clang} of the sources, as the unit tests compile them."""
    build = measuring.BUILD / "asan"
    if not (build / "compile_commands.json").exists():
        FOLDER.mkdir(parents=True, exist_ok=True)
        measuring.run_logged(FOLDER / "configure-asan.log", "configuring", ["cmake", "--preset", "asan"], measuring.REPOSITORY)
    chosen = {}
    for entry in json.loads((build / "compile_commands.json").read_text("utf-8")):
        if "velto_module_under_test.dir" in entry["command"] or "velto_logging.dir" in entry["command"]:
            words = shlex.split(lint_commands.for_clang(entry["command"]))[1:]
            output = words.index("-o")
            words = words[:output] + words[output + 2:]
            chosen[entry["file"]] = [word for word in words if word not in ("-c", entry["file"]) and
                                     not word.startswith(("-fsanitize", "-fno-sanitize", "-W"))]
    return chosen


@dataclasses.dataclass
class Unit:
    """A source and the headers that are scanned with it. Each header belongs to one unit."""
    path: str
    arguments: list
    files: dict  # path: (name, first number)

    def cache(self, excluded):
        parts = [path.read_bytes() for path in TOOLS]
        own = sources()
        parts += [own[name].read_bytes() for name in sorted(included(self.files[self.path][0], own) | {self.files[self.path][0]})]
        keys = " ".join(sorted(key for file, key in excluded if any(file == name for name, _ in self.files.values())))
        return FOLDER / "scanned" / f"{digest(*parts, repr(self), keys)}.json"


def units():
    files, compiled = sources(), commands()
    numbers = {name: 1 + NUMBERS_PER_FILE * index for index, name in enumerate(files)}
    result, taken = [], set()
    for name, path in files.items():
        if str(path) not in compiled:
            continue
        new = [name, *sorted(included(name, files) - taken)]
        taken.update(new)
        result.append(Unit(str(path), compiled[str(path)], {str(files[one]): (one, numbers[one]) for one in new}))
    return result


def read_unit(unit, excluded):
    """{name: (mutants, text of the copy)}. Cached, because clang needs seconds for a source."""
    cache = unit.cache(excluded)
    if cache.exists():
        return {name: ([places.Mutant(**mutant) for mutant in mutants], text)
                for name, (mutants, text) in json.loads(cache.read_text("utf-8")).items()}
    scanners = places.scan(places.parse(unit.path, unit.arguments), unit.files)
    result = {name: (scanner.mutants, places.render(scanner.text, scanner.edits, keys_of(excluded))) for name, scanner in scanners.items()}
    cache.parent.mkdir(parents=True, exist_ok=True)
    cache.write_text(json.dumps({name: ([dataclasses.asdict(mutant) for mutant in mutants], text)
                                 for name, (mutants, text) in result.items()}), "utf-8")
    return result


def read_excluded():
    """{(file, key)} of the mutants whose switches do not compile."""
    file = FOLDER / "excluded.json"
    return {tuple(entry) for entry in json.loads(file.read_text("utf-8"))} if file.exists() else set()


def keys_of(excluded):
    return {key for _, key in excluded}


class Copies:
    """All mutants, and the tree of copies."""

    def __init__(self, jobs, say):
        self.say = say
        self.jobs = jobs
        self.units = units()
        self.excluded = read_excluded()
        self.mutants, self.texts = [], {}
        self.read(self.units)

    def read(self, chosen):
        with concurrent.futures.ProcessPoolExecutor(self.jobs) as pool:
            for found in pool.map(read_unit, chosen, [frozenset(self.excluded)] * len(chosen)):
                for name, (mutants, text) in found.items():
                    self.mutants = [mutant for mutant in self.mutants if mutant.file != name] + mutants
                    self.texts[name] = text
        self.mutants.sort(key=lambda mutant: (mutant.file, mutant.number))

    def is_separate(self, mutant):
        return mutant.separate or (mutant.file, mutant.key) in self.excluded

    def unit_of(self, name):
        return next(unit for unit in self.units if any(name == one for one, _ in unit.files.values()))

    def write(self, changed=None):
        """Writes the copies that differ from the tree. `changed`: {name: text} instead of the copies with switches."""
        TREE.mkdir(parents=True, exist_ok=True)
        for entry in measuring.REPOSITORY.iterdir():
            if entry.name not in (*FOLDERS, "build", ".git") and not (TREE / entry.name).exists():
                (TREE / entry.name).symlink_to(entry)
        wanted = {**self.texts, **(changed or {})}
        for folder in FOLDERS:
            for path in (measuring.REPOSITORY / folder).rglob("*"):
                name = str(path.relative_to(measuring.REPOSITORY))
                if path.is_file():
                    copy = TREE / name
                    text = wanted[name].encode("latin-1") if name in wanted else path.read_bytes()
                    if not copy.exists() or copy.read_bytes() != text:
                        copy.parent.mkdir(parents=True, exist_ok=True)
                        copy.write_bytes(text)
        known = set(wanted)
        for folder in FOLDERS:
            for copy in (TREE / folder).rglob("*"):
                name = str(copy.relative_to(TREE))
                if copy.suffix in (".h", ".cpp") and name not in known and not (measuring.REPOSITORY / name).exists():
                    copy.unlink()

    def compile(self, sanitizers, log_name="build.log"):
        """The compiler's output if it fails, else None."""
        for sanitizer in sanitizers:
            if not (binaries(sanitizer) / "build.ninja").exists():
                measuring.run_logged(FOLDER / f"configure-copies-{sanitizer}.log", "configuring the copies",
                                     ["cmake", "--preset", sanitizer, "-DVELTO_MUTANTS=ON"], TREE)
            log = FOLDER / log_name
            command = ["cmake", "--build", binaries(sanitizer), "-j", str(self.jobs), "--target", *TARGETS, "--", "-k", "0"]
            with open(log, "w", encoding="utf-8") as out:
                code = subprocess.run(command, stdout=out, stderr=out, check=False).returncode
            if code != 0:
                return log.read_text("utf-8", "replace")
        return None

    def build(self):
        """Builds the copies. Places that do not compile with a switch become separate."""
        for number in range(MAX_ROUNDS):
            self.write()
            self.say("building the copies" if number == 0 else f"building the copies without {len(self.excluded)} switches")
            output = self.compile(SANITIZERS)
            if output is None:
                return
            blamed = self.blamed(output, whole_lines=number >= MAX_ROUNDS // 2)
            if not blamed:
                print("\n".join(f"    | {line}" for line in output.splitlines()[-30:]), file=sys.stderr)
                raise RuntimeError(f"the copies do not compile; the lines above end the log: {FOLDER}/build.log")
            self.excluded |= {(mutant.file, mutant.key) for mutant in blamed}
            (FOLDER / "excluded.json").write_text(json.dumps(sorted(self.excluded)), "utf-8")
            names = {mutant.file for mutant in blamed}
            self.read([unit for unit in self.units if names & {name for name, _ in unit.files.values()}])
        raise RuntimeError(f"the copies do not compile after {MAX_ROUNDS} rounds, see {FOLDER}/build.log")

    def blamed(self, output, whole_lines):
        """The mutants whose switches the compiler's errors name."""
        by_number = {mutant.number: mutant for mutant in self.mutants}
        place = re.compile(rf"((?:{'|'.join(FOLDERS)})/[\w/.-]+):(\d+):(\d+):\s*(error|.*required|.*in .constexpr)")
        found, last = set(), None
        for line in output.splitlines():
            match = place.search(line)
            is_error = ": error: " in line or ": fatal error: " in line
            if match and match[1] in self.texts:
                last = (match[1], int(match[2]), int(match[3]))
            if is_error and last is not None:
                found |= self.numbers_at(*last, whole_lines)
        return [by_number[number] for number in found if not self.is_separate(by_number[number])]

    def numbers_at(self, name, line, column, whole_line):
        lines = self.texts[name].split("\n")
        at = line + 1  # two lines come before the source's first one
        for offset in range(12):
            if at - offset < 2:
                break
            text = lines[at - offset]
            switches = [(match.start() + 1, int(match[1])) for match in re.finditer(r"Velto(?:Constexpr)?Mutant\((\d+)\)", text)]
            if offset == 0 and not whole_line and any(start <= column for start, _ in switches):
                switches = [max((start, number) for start, number in switches if start <= column)]
            if switches:
                return {number for _, number in switches}
        return set()

    def build_separately(self, mutant):
        """Builds the programs with one mutant instead of its switch. Returns False if they do not compile."""
        unit = self.unit_of(mutant.file)
        scanner = places.scan(places.parse(unit.path, unit.arguments), unit.files)[mutant.file]
        forced = next(one for one in scanner.mutants if one.key == mutant.key)
        self.write({mutant.file: places.render(scanner.text, scanner.edits, keys_of(self.excluded), forced)})
        output = self.compile(sanitizers_for(mutant), "separate.log")
        if output is not None and ": error: " not in output:
            raise RuntimeError(f"a compilation was interrupted, see {FOLDER}/separate.log")
        return output is None


def binaries(sanitizer):
    """The build folder of the copies."""
    return TREE / "build" / sanitizer


def sanitizers_for(mutant):
    """The presets whose programs run a mutant, in this order. Without a lock, a data race is likely to remain unnoticed
    unless ThreadSanitizer reports it."""
    return ("tsan", "asan") if mutant.kind == "lock" else ("asan",)


def fingerprint():
    """A digest of all files that a result depends on."""
    files = list(sources().values()) + TOOLS
    for folder in ("tests/unit", "tests/fakes", "tests/platform", "tests/mutants", "include"):
        files += [path for path in sorted((measuring.REPOSITORY / folder).rglob("*")) if path.suffix in (".h", ".cpp", ".txt")]
    return digest(*(str(path.relative_to(measuring.REPOSITORY)) for path in files), *(path.read_bytes() for path in files))


def windows_only_lines():
    """{file: number of lines that only the Windows build compiles}"""
    result = {}
    for name, path in sources().items():
        stack, count = [], 0
        for line in path.read_text("latin-1").splitlines():
            word = line.strip()
            if re.match(r"#\s*if", word):
                stack.append(word.split()[-1] == "_WIN32" and "ifdef" in word)
            elif re.match(r"#\s*else", word) and stack:
                stack[-1] = False
            elif re.match(r"#\s*endif", word) and stack:
                stack.pop()
            elif any(stack) and word and not word.startswith("//"):
                count += 1
        if count:
            result[name] = count
    return result


def matches(mutant, pattern):
    """Whether --only chooses a mutant: FILE, FILE:LINE or a pattern of files."""
    file, _, line = pattern.partition(":")
    return (fnmatch.fnmatch(mutant.file, file) or mutant.file.startswith(f"{file.rstrip('/')}/")) and \
        (not line or mutant.line == int(line))


def jobs_default():
    return os.cpu_count() or 1
