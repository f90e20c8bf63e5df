"""The public header compiles as each supported language with each supported compiler. The code in the documents builds."""

import re
import subprocess
import tempfile
import unittest

import places

COMPILERS = (["gcc"], ["x86_64-w64-mingw32-gcc-posix"],
             ["clang", "--target=x86_64-pc-windows-msvc", "-ffreestanding"])
HEADER = places.REPOSITORY / "include" / "velto" / "audio_handler.h"
SOURCE = '#include "velto/audio_handler.h"\nint main(void) { return 0; }\n'
WARNINGS = ["-pedantic-errors", "-Wall", "-Wextra", "-Werror"]


def compile_as(compiler, language, standard, source=SOURCE, include=HEADER.parents[1]):
    return subprocess.run([*compiler, "-x", language, f"-std={standard}", *WARNINGS, "-I", str(include),
                           "-fsyntax-only", "-"], input=source, capture_output=True, text=True)


class PublicHeader(unittest.TestCase):
    def compiles(self, language, standard):
        for compiler in COMPILERS:
            with self.subTest(compiler[0]):
                result = compile_as(compiler, language, standard)
                self.assertEqual(result.returncode, 0, result.stderr)

    def test_header_compiles_as_c99(self):
        self.compiles("c", "c99")

    def test_header_compiles_as_c11(self):
        self.compiles("c", "c11")

    def test_header_compiles_as_cpp11(self):
        self.compiles("c++", "c++11")

    def test_header_compiles_as_cpp20(self):
        self.compiles("c++", "c++20")

    def test_unknown_type_does_not_compile(self):
        # Shows that the tests above can fail.
        result = compile_as(["gcc"], "c", "c99", SOURCE + "VeltoNoSuchType value;\n")
        self.assertNotEqual(result.returncode, 0)


class Layout(unittest.TestCase):
    """Static assertions in the header reject renamed fields and swapped slots."""

    def setUp(self):
        self.text = HEADER.read_text("utf-8")

    def assert_refused(self, text):
        self.assertNotEqual(text, self.text, "nothing was changed")
        with tempfile.TemporaryDirectory() as folder:
            changed = places.pathlib.Path(folder) / "velto" / "audio_handler.h"
            changed.parent.mkdir()
            changed.write_text(text, "utf-8")
            for language, standard in (("c", "c99"), ("c", "c11"), ("c++", "c++11")):
                result = compile_as(["gcc"], language, standard, include=folder)
                self.assertNotEqual(result.returncode, 0, f"{language} {standard} accepts the changed layout")

    def test_every_slot_name_of_table_has_assertion(self):
        for slot in self.slots():
            with self.subTest(slot):
                self.assert_refused(re.sub(rf"\(\*{slot}\)\(", "(*renamed)(", self.text))

    def slots(self):
        slots = re.findall(r"\(\*(\w+)\)\(", self.text.partition("typedef struct AudioHandlerTable")[2])[:11]
        self.assertEqual(len(slots), 11)
        return slots

    def test_swapped_slots_of_table_do_not_compile(self):
        slots = self.slots()
        for first, second in zip(slots, slots[1:] + slots[:1]):
            with self.subTest(f"{first} and {second}"):
                self.assert_refused(re.sub(rf"\(\*({first}|{second})\)\(", lambda slot: slot[0].replace(
                    slot[1], second if slot[1] == first else first), self.text))

    def test_every_record_field_has_assertion(self):
        records, _, _ = self.text.partition("typedef struct AudioHandlerTable")
        records = records[records.index("typedef struct"):]
        fields = [(name, field) for name, body in re.findall(r"typedef struct (\w+) \{(.*?)\n\}", records, re.S)
                  for field in re.findall(r"^    [\w ]+?[ *](\w+)(?:\[\d+\])?;", body, re.M)]
        self.assertEqual(len(fields), 27)
        for record, field in fields:
            with self.subTest(f"{record}.{field}"):
                begin = self.text.index(f"typedef struct {record} {{")
                end = self.text.index(f"}} {record};", begin)
                changed = re.sub(rf"\b{field}(?=(\[\d+\])?;)", "renamed", self.text[begin:end])
                self.assert_refused(self.text[:begin] + changed + self.text[end:])


class Documents(unittest.TestCase):
    def assert_builds(self, code):
        with tempfile.TemporaryDirectory() as folder:
            result = subprocess.run(
                ["x86_64-w64-mingw32-gcc-posix", "-x", "c", "-std=c99", *WARNINGS, "-I", str(HEADER.parents[1]),
                 "-", "-o", f"{folder}/example.exe"], input=code, capture_output=True, text=True)
            self.assertEqual(result.returncode, 0, result.stderr)

    def test_example_in_header_builds(self):
        code = HEADER.read_text("utf-8").partition("@code{.c}\n")[2].partition(" * @endcode")[0]
        code = re.sub(r"^ \* ?", "", code, flags=re.M)
        self.assertIn("int main(void)", code)
        self.assert_builds(code)

    def test_code_in_integration_guide_builds(self):
        guide = (places.REPOSITORY / "docs" / "integration.md").read_text("utf-8")
        pieces = re.findall(r"^```c\n(.*?)^```$", guide, re.S | re.M)
        self.assertEqual(len(pieces), 6)
        self.assert_builds("\n".join(pieces) + "\nint main(void) { return 0; }\n")


if __name__ == "__main__":
    unittest.main()
