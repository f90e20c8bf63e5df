"""The places that scripts/mutants finds in C++ code, and what it says of strong and weak tests."""

import contextlib
import io
import pathlib
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

import places

sys.path.insert(0, str(places.REPOSITORY / "scripts"))

import mutants_page
import mutants_places
import mutants_tests

RUNTIME = places.REPOSITORY / "tests" / "mutants" / "runtime.cpp"


def scanned(code, folder, name="module.cpp"):
    path = pathlib.Path(folder) / name
    path.write_text(code, "latin-1")
    unit = mutants_places.parse(str(path), ["-std=c++20"])
    return mutants_places.scan(unit, {str(path): (name, 1)})[name]


class Places(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # Precompiled, because some tests compile a copy for each mutant.
        folder = tempfile.TemporaryDirectory(prefix="velto-mutants-")
        cls.addClassCleanup(folder.cleanup)
        cls.headers = pathlib.Path(folder.name)
        (cls.headers / "tests" / "mutants").mkdir(parents=True)
        subprocess.run(["g++", "-std=c++20", "-w", "-Wno-narrowing", "-x", "c++-header",
                        places.REPOSITORY / "tests" / "mutants" / "mutant.h",
                        "-o", cls.headers / "tests" / "mutants" / "mutant.h.gch"], check=True)

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velto-mutants-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def scan(self, code):
        return scanned(code, self.folder)

    def changes(self, code, kind=None):
        return [mutant.change for mutant in self.scan(code).mutants if kind in (None, mutant.kind)]

    def compiles(self, scanner, forced=None):
        """Whether the copy compiles, with switches or with one mutant instead of its switch."""
        copy = pathlib.Path(self.folder) / "copy.cpp"
        copy.write_text(mutants_places.render(scanner.text, scanner.edits, forced=forced), "latin-1")
        result = subprocess.run(["g++", "-std=c++20", "-w", "-Wno-narrowing", "-fsyntax-only", "-I", self.headers, copy],
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, f"{result.stderr}\n{copy.read_text()}")

    def test_relation_has_both_neighbours(self):
        self.assertEqual(self.changes("bool f(int a, int b) { return a < b; }", "relation"),
                         ["a < b → a <= b", "a < b → a != b"])
        self.assertEqual(self.changes("bool f(int a) { return a == 5; }"), ["a == 5 → a != 5", "5 → 6"])

    def test_logic_loses_each_operand(self):
        self.assertEqual(self.changes("bool f(bool a, bool b) { return a && !b; }", "logic"),
                         ["a && !b → a", "a && !b → !b", "!b → b"])

    def test_conditions_are_negated_once(self):
        self.assertEqual(self.changes("int f(int a) { while (a > 2) { --a; } return a; }", "condition"), ["a > 2 → !(a > 2)"])
        self.assertEqual(self.changes("int f(int a) { if (a == 2) { --a; } return a; }", "condition"), [])
        self.assertEqual(self.changes("int *g(); int f() { if (int *p = g()) { return *p; } return 9; }", "condition"), ["p → !p"])

    def test_constants_become_others(self):
        self.assertEqual(self.changes('void g(int, const char *, bool, float); void f() { g(1, "ab", true, 0.5F); }', "constant"),
                         ["1 → 0", '"ab" → "#b"', "true → false", "0.5F → (2 * 0.5F)"])
        self.assertEqual(self.changes("enum E { A, B }; E f() { return B; }", "constant"), ["B → another value"])

    def test_macro_is_one_constant(self):
        self.assertEqual(self.changes("#define BAD (-1)\n#define TWICE(x) ((x) + (x))\nint f(int a) { return a > 3 ? BAD : TWICE(7); }",
                                      "constant"), ["3 → 4", "BAD → another value", "TWICE(7) → another value"])

    def test_statements_are_deleted(self):
        code = "void g(); void f(int &a) { g(); a = 2; a += 1; if (a) return; g(); }"
        self.assertEqual(self.changes(code, "call"), ["g(); → deleted", "g(); → deleted"])
        self.assertEqual(self.changes(code, "assignment"), ["a = 2; → deleted", "a += 1; → deleted"])
        self.assertEqual(self.changes(code, "jump"), ["return; → deleted"])

    def test_returned_values_become_others(self):
        self.assertEqual(self.changes("bool g(); bool f() { return g(); }", "return"), ["g() → !(g())"])
        self.assertEqual(self.changes("int *g(); int *f() { return g(); }", "return"), ["g() → nullptr"])
        self.assertEqual(self.changes("int g(); int f() { return g(); }", "return"), ["g() → another value"])

    def test_locks_are_dropped_and_extended(self):
        code = """#include <mutex>
            std::mutex m;
            void g();
            void f() { { const std::lock_guard lock(m); g(); } g(); }
            bool h() { const std::unique_lock lock(m, std::try_to_lock); return lock.owns_lock(); }"""
        self.assertEqual(self.changes(code, "lock"),
                         ["const std::lock_guard lock(m); → not locked",
                          "const std::lock_guard lock(m); → locked until the end of the outer block",
                          "const std::unique_lock lock(m, std::try_to_lock); → not locked",
                          "const std::unique_lock lock(m, std::try_to_lock); → waits for the lock"])
        self.compiles(self.scan(code))

    def test_constant_is_switched_where_it_is_used(self):
        scanner = self.scan('constexpr int limit = 8;\nconstexpr char tag[] = "ab";\nvoid g(const char *, int);\n'
                            "void f() { g(tag, limit); }")
        self.assertEqual([(mutant.change, mutant.separate) for mutant in scanner.mutants if mutant.line < 3],
                         [("8 → 9", False), ('"ab" → "#b"', False)])
        self.compiles(scanner)

    def test_indexed_text_is_chosen_by_a_call(self):
        scanner = self.scan('char f(int a) { return "0123"[a & 3]; }')
        self.assertIn('"0123" → "#123"', [mutant.change for mutant in scanner.mutants])
        self.compiles(scanner)

    def test_returned_null_becomes_another_object(self):
        self.assertEqual(self.changes("int a; int *f(bool b) { if (b) { return &a; } return nullptr; }", "return"),
                         ["&a → nullptr", "nullptr → &a"])

    def test_mutant_of_several_lines_is_where_its_operator_is(self):
        self.assertEqual([mutant.line for mutant in self.scan("bool f(int a) {\n    return a\n        == 5;\n}").mutants], [3, 3])

    def test_change_of_a_long_line_shows_the_difference(self):
        name = "aVeryLongNameOfAFunctionWhoseResultIsComparedWithAnotherOne"
        self.assertEqual(self.changes(f"int {name}(int, int); bool f() {{ return {name}(1111111111, 2) == 7; }}", "relation"),
                         ["…1111111111, 2) == 7 → …1111111111, 2) != 7"])

    def test_place_in_constant_expression_is_separate(self):
        scanner = self.scan("constexpr int room = 8;\nint places[room];\nint f(int a) { switch (a) { case 4: return a; } return 0; }")
        self.assertEqual([mutant.change for mutant in scanner.mutants if mutant.separate], ["8 → 9", "4 → 5"])
        self.compiles(scanner)
        for mutant in scanner.mutants:
            self.compiles(scanner, mutant)

    def test_static_assertions_and_sizes_are_no_places(self):
        self.assertEqual(self.changes("static_assert(sizeof(int) == 4); unsigned long f() { return sizeof(int[3]); }", "constant"), [])

    def test_every_kind_compiles_with_switches_and_without(self):
        scanner = self.scan("""#include <mutex>
            #include <string>
            std::mutex m;
            const std::string name = "x";
            template <typename T> T Half(T a) { return a / 2; }
            constexpr int Twice(int a) { return a << 1; }
            int f(int a, const std::string &text) {
                const std::lock_guard lock(m);
                if (text != name && a >= 0) Twice(a); else a -= 1;
                for (int i = 0; i < a; i++) { if (i == 7) break; a = Half(a) - Twice(i); }
                const auto again = [&a] { return a > -1; };
                if (!again()) { return {}; }
                switch (a) { case 1: a = 2; break; default: a %= 3; }
                return text.empty() ? a : 0x10;
            }""")
        self.assertEqual({mutant.kind for mutant in scanner.mutants}, set(mutants_places.KINDS))
        self.compiles(scanner)
        for mutant in scanner.mutants:
            self.compiles(scanner, mutant)

    def test_keys_do_not_depend_on_the_line(self):
        code = "bool f(int a, int b) { return a < b; }"
        self.assertEqual([mutant.key for mutant in self.scan(code).mutants], [mutant.key for mutant in self.scan(f"\n\n{code}").mutants])


MODULE = "bool IsFull(int blocks) { return blocks >= 5; }\nint Unused(int a) { return a + 1; }\n"
MODULE += "int Steps(int left) { int steps = 0; for (; left != 0; --left) { ++steps; } return steps; }\n"
HEAD = "#include <gtest/gtest.h>\nbool IsFull(int);\n"
WEAK = HEAD + "TEST(Queue, FillsUp) { EXPECT_FALSE(IsFull(1)); EXPECT_TRUE(IsFull(9)); }\n"
STRONG = WEAK + "TEST(Queue, IsFullWithFiveBlocks) { EXPECT_FALSE(IsFull(4)); EXPECT_TRUE(IsFull(5)); EXPECT_TRUE(IsFull(6)); }\n"
FAILING = HEAD + "TEST(Queue, FillsUp) { EXPECT_TRUE(IsFull(1)); }\n"


class Verdicts(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="velto-mutants-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        cls.scanner = scanned(MODULE, cls.folder)
        copy = cls.folder / "copy.cpp"
        copy.write_text(mutants_places.render(cls.scanner.text, cls.scanner.edits), "latin-1")
        for source in (copy, RUNTIME):
            cls.compile("-c", source, "-o", cls.folder / f"{source.stem}.o")

    @staticmethod
    def compile(*arguments):
        subprocess.run(["g++", "-std=c++20", "-g0", "-I", places.REPOSITORY, *arguments], check=True)

    def outcomes(self, tests, slow="", is_explained=False):
        """{change: outcome} of the module's mutants under these tests. slow: the name of a test that counts as slow."""
        program = self.folder / "tests"
        source = self.folder / "tests.cpp"
        source.write_text(tests)
        self.compile(source, self.folder / "copy.o", self.folder / "runtime.o", "-o", program, "-lgtest", "-lgtest_main", "-pthread")
        group = mutants_tests.Group("group", str(program), "*", {})
        found, outside = mutants_tests.record([group], self.folder, lambda text: None)
        numbers = {"module.cpp": {mutant.number for mutant in self.scanner.mutants}}
        for test in found:
            test.milliseconds = mutants_tests.SLOW_MS if test.name == slow else 1
        runner = mutants_tests.Runner(found, outside, numbers, {})
        return {mutant.change: runner.run(mutant, is_explained=is_explained).outcome for mutant in self.scanner.mutants}

    def test_strong_test_catches_all_that_it_reaches(self):
        outcomes = self.outcomes(STRONG)
        reached = {change: outcome for change, outcome in outcomes.items() if outcome != "not reached"}
        self.assertEqual(set(reached.values()), {"caught"})
        self.assertEqual(set(reached), {"blocks >= 5 → blocks > 5", "blocks >= 5 → blocks == 5", "5 → 6",
                                        "blocks >= 5 → !(blocks >= 5)"})
        self.assertEqual(outcomes["a + 1 → a - 1"], "not reached")

    def test_weak_test_lets_the_limits_survive(self):
        outcomes = self.outcomes(WEAK)
        self.assertEqual(outcomes["blocks >= 5 → blocks > 5"], "survived")
        self.assertEqual(outcomes["5 → 6"], "survived")
        self.assertEqual(outcomes["blocks >= 5 → !(blocks >= 5)"], "caught")

    def test_only_explained_survivors_are_spared_slow_tests(self):
        change, slow = "blocks >= 5 → blocks > 5", "Queue.IsFullWithFiveBlocks"
        self.assertEqual(self.outcomes(STRONG, slow)[change], "caught")
        self.assertEqual(self.outcomes(STRONG, slow, is_explained=True)[change], "survived")

    def test_endless_loop_is_caught_by_the_limit_of_its_test(self):
        with unittest.mock.patch.object(mutants_tests, "LIMIT_S", 1):
            outcomes = self.outcomes(STRONG + "int Steps(int);\nTEST(Queue, CountsSteps) { EXPECT_EQ(Steps(7), 7); }\n")
        self.assertEqual(outcomes["--left → ++left"], "hung")
        self.assertEqual(outcomes["++steps → --steps"], "caught")

    def test_failing_test_stops_the_run(self):
        with contextlib.redirect_stderr(io.StringIO()), self.assertRaisesRegex(RuntimeError, "Queue.FillsUp of group fails without a mutant"):
            self.outcomes(FAILING)


COUNTER = "#include <mutex>\nstd::mutex mutex;\nint total = 0;\n"
COUNTER += "void Add() { const std::lock_guard<std::mutex> lock(mutex); ++total; }\n"
ADDING = "#include <gtest/gtest.h>\n#include <thread>\nvoid Add();\n"
# Many times, because ThreadSanitizer can miss two accesses that happen at the same moment.
ADDING += "void AddOften() { for (int left = 1000; left > 0; --left) { Add(); } }\n"
ADDING += "TEST(Counter, AddsOnTwoThreads) { std::thread other(AddOften); AddOften(); other.join(); }\n"


class LockVerdicts(unittest.TestCase):
    def test_dropped_lock_is_caught_by_thread_sanitizer(self):
        with tempfile.TemporaryDirectory(prefix="velto-mutants-") as name:
            folder = pathlib.Path(name)
            scanner = scanned(COUNTER, folder)
            (folder / "copy.cpp").write_text(mutants_places.render(scanner.text, scanner.edits), "latin-1")
            (folder / "tests.cpp").write_text(ADDING)
            groups = []
            for build, sanitizer in (("asan", "address"), ("tsan", "thread")):
                program = folder / build
                Verdicts.compile(f"-fsanitize={sanitizer}", folder / "copy.cpp", folder / "tests.cpp", RUNTIME, "-o", program,
                                 "-lgtest", "-lgtest_main", "-pthread")
                groups.append(mutants_tests.Group(f"{build}.unit", str(program), "*", {}))
            found, outside = mutants_tests.record(groups[:1], folder, lambda text: None)
            dropped = next(mutant for mutant in scanner.mutants if mutant.change.endswith("not locked"))
            numbers = {"module.cpp": {mutant.number for mutant in scanner.mutants}}
            with_threads = mutants_tests.Runner(found, outside, numbers, {}, groups[1:]).run(dropped)
            without = mutants_tests.Runner(found, outside, numbers, {}).run(dropped)
        self.assertEqual((with_threads.outcome, with_threads.by), ("crashed", "Counter.AddsOnTwoThreads"))
        self.assertEqual(without.outcome, "survived")


class Reports(unittest.TestCase):
    def report(self, outcomes, accepted):
        mutants = [mutants_places.Mutant("capture/x.cpp", number, "call", f"f{number}(); → deleted", f"f{number}();", False,
                                         key=str(number), number=number) for number, _ in enumerate(outcomes, 1)]
        results = {str(number): mutants_tests.Result(outcome) for number, outcome in enumerate(outcomes, 1)}
        report = mutants_page.Report(mutants, results)
        report.accepted = accepted
        return report

    def test_score_counts_what_builds(self):
        report = self.report(["caught", "crashed", "hung", "survived", "unbuildable"], [])
        self.assertEqual(mutants_page.score(report.total), 75.0)

    def test_survivor_needs_a_reason(self):
        entry = {"file": "capture/x.cpp", "line": "f1();", "reason": "equal behaviour"}
        outcomes = ["survived"] + ["caught"] * 99
        self.assertEqual(list(self.report(outcomes, [entry]).missed(True)), [])
        self.assertEqual(list(self.report(outcomes, []).missed(True)),
                         ["capture/x.cpp:1 survives without a reason in survivors.toml: f1(); → deleted"])

    def test_entry_for_a_caught_mutant_is_stale(self):
        entry = {"file": "capture/x.cpp", "line": "f1();", "reason": "equal behaviour"}
        self.assertEqual(list(self.report(["caught"], [entry]).missed(True)),
                         ["survivors.toml has an entry that matches no survivor: capture/x.cpp: f1();"])

    def test_low_score_misses_the_goal(self):
        self.assertEqual(list(self.report(["caught", "survived"], []).missed(False)),
                         ["tests must catch at least 95.0 % of the mutants that build, and catch 50.0 %"])


if __name__ == "__main__":
    unittest.main()
