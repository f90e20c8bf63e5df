"""The C interface compiles by itself in the languages and compilers a host may use."""

import subprocess
import unittest

import places

COMPILERS = ("gcc", "x86_64-w64-mingw32-gcc-posix")
SOURCE = '#include "velto/audio_handler.h"\nint main(void) { return 0; }\n'


def compile_as(compiler, language, standard, source=SOURCE):
    return subprocess.run(
        [compiler, "-x", language, f"-std={standard}", "-pedantic-errors", "-Wall", "-Wextra", "-Werror",
         "-I", str(places.REPOSITORY / "include"), "-fsyntax-only", "-"],
        input=source, capture_output=True, text=True)


class PublicHeader(unittest.TestCase):
    def compiles(self, language, standard):
        for compiler in COMPILERS:
            with self.subTest(compiler):
                result = compile_as(compiler, language, standard)
                self.assertEqual(result.returncode, 0, result.stderr)

    def test_compiles_as_c99(self):
        self.compiles("c", "c99")

    def test_compiles_as_c11(self):
        self.compiles("c", "c11")

    def test_compiles_as_cpp11(self):
        self.compiles("c++", "c++11")

    def test_compiles_as_cpp20(self):
        self.compiles("c++", "c++20")

    def test_a_wrong_use_does_not_compile(self):
        result = compile_as("gcc", "c", "c99", SOURCE + "VeltoNoSuchType value;\n")
        self.assertNotEqual(result.returncode, 0)


if __name__ == "__main__":
    unittest.main()
