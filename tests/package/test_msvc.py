"""A host in Visual C++'s ABI links the package and runs; both compilers lay the records out alike.

clang stands in for Visual C++: it compiles for the target x86_64-pc-windows-msvc, and lld-link takes link.exe's place."""

import re
import shutil
import struct
import unittest

import packages

SOURCE = packages.REPOSITORY / "tests" / "package" / "msvc" / "host.c"
MSVC = ["clang", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-fno-stack-protector"]
KERNEL = "LIBRARY kernel32.dll\nEXPORTS\nExitProcess\nGetStdHandle\nWriteFile\n"
LANGUAGES = {"c": "c99", "c++": "c++14"}


class Host(packages.Unpacked):
    def link(self, language):
        folder = self.root / f"host {language}"
        folder.mkdir()
        (folder / "kernel32.def").write_text(KERNEL)
        packages.run("llvm-dlltool", "-m", "i386:x86-64", "-d", folder / "kernel32.def", "-l", folder / "kernel32.lib")
        packages.run(*MSVC, "-x", language, f"-std={LANGUAGES[language]}", "-Wall", "-Wextra", "-Werror", "-O1",
                     "-I", self.package / "include", "-c", SOURCE, "-o", folder / "host.obj")
        packages.run("lld-link", "/subsystem:console", f"/out:{folder}/host.exe", folder / "host.obj",
                     self.package / "lib" / "LibVeltoAudioHandler.lib", folder / "kernel32.lib")
        for dll in (self.package / "bin").glob("*.dll"):
            shutil.copy(dll, folder)
        return folder / "host.exe"

    def assert_runs(self, language):
        # The last line is the id of the event of SetAudioParameter.
        self.assertEqual(packages.run_windows(self.link(language)).split(),
                         ["speaker1", "ModemSpeaker1", "ModemMic1", "mic1", "speaker1"])

    def test_c_host_links_the_msvc_import_library_and_runs(self):
        self.assert_runs("c")

    def test_cpp_host_links_the_msvc_import_library_and_runs(self):
        self.assert_runs("c++")


class Records(packages.Unpacked):
    def setUp(self):
        self.header = (self.package / "include" / "velto" / "audio_handler.h").read_text("utf-8")

    def rows(self):
        """Expressions in C: two numbers for each record, field and constant."""
        for record, body in re.findall(r"typedef struct (\w+) \{(.*?)\n\} \1;", self.header, re.S):
            yield f"sizeof({record}), _Alignof({record})"
            code = re.sub(r"/\*.*?\*/", "", body, flags=re.S)
            for slot, field in re.findall(r"\(\*(\w+)\)|[ *](\w+)(?:\[\d+\])?;", code):
                name = slot or field
                yield f"offsetof({record}, {name}), sizeof((({record} *)0)->{name})"
        for constant in re.findall(r"^    (VELTO_\w+) = ", self.header, re.M):
            yield f"sizeof({constant}), (unsigned)({constant})"

    def compiled(self, name, compiler):
        """The numbers as a compiler computes them."""
        source, out, table = (self.root / f"{name}.{ending}" for ending in ("c", "o", "table"))
        source.write_text('#include "velto/audio_handler.h"\n'
                          'const unsigned table[] __attribute__((section(".layout"))) = {\n' + ",\n".join(self.rows()) + "};\n")
        packages.run(*compiler, "-std=c11", "-I", self.package / "include", "-c", source, "-o", out)
        packages.run("x86_64-w64-mingw32-objcopy", "--dump-section", f".layout={table}", out, f"{out}.copy")
        count = 2 * len(list(self.rows()))
        return struct.unpack(f"<{count}I", table.read_bytes()[:4 * count])

    def test_every_record_field_and_constant_is_compared(self):
        rows = list(self.rows())
        self.assertEqual(sum("_Alignof" in row for row in rows), 8)
        self.assertEqual(sum("offsetof" in row for row in rows), 27 + 11)
        constants = re.findall(r"^    VELTO_\w+ = -?\d+", self.header, re.M)
        self.assertEqual(sum("(unsigned)" in row for row in rows), len(constants))

    def test_records_and_constants_are_the_same_with_both_compilers(self):
        self.assertEqual(self.compiled("gcc", [packages.GCC]), self.compiled("msvc", MSVC))


if __name__ == "__main__":
    unittest.main()
