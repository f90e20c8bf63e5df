"""Exports, imports and headers of the shipped files."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

import pefile

import places

# DLLs that every Windows 10 has.
WINDOWS = {"advapi32.dll", "bcrypt.dll", "kernel32.dll", "msvcrt.dll", "ntdll.dll", "ole32.dll",
           "shell32.dll", "user32.dll", "version.dll"}

# DLLs of Windows that the module imports.
MODULE_IMPORTS = {"advapi32.dll", "kernel32.dll", "msvcrt.dll", "ntdll.dll", "ole32.dll"}
# Shipped files that this project compiles.
OWN = tuple(name for name in places.SHIPPED if name not in places.FFMPEG)


def headers(name):
    return subprocess.run(["x86_64-w64-mingw32-objdump", "-p", str(places.BIN / name)],
                          check=True, capture_output=True, text=True).stdout


def sections(path):
    return subprocess.run(["x86_64-w64-mingw32-objdump", "-h", str(path)],
                          check=True, capture_output=True, text=True).stdout


def exports(name):
    with pefile.PE(str(places.BIN / name)) as image:
        return [symbol.name.decode("ascii") for symbol in image.DIRECTORY_ENTRY_EXPORT.symbols]


def imports(name):
    return {dll.lower() for dll in re.findall(r"DLL Name: (\S+)", headers(name))}


class ShippedFiles(unittest.TestCase):
    def test_product_folder_has_only_shipped_files(self):
        self.assertEqual(sorted(file.name for file in places.BIN.iterdir()), sorted(places.SHIPPED))

    def test_module_exports_only_its_entry(self):
        self.assertEqual(exports(places.MODULE), ["VELTOGetAudioHandler"])

    def test_module_imports_only_listed_libraries(self):
        self.assertEqual(imports(places.MODULE), MODULE_IMPORTS | set(places.FFMPEG))

    def test_shipped_files_need_only_windows_and_ffmpeg(self):
        for name in places.SHIPPED:
            with self.subTest(name):
                needed = imports(name)
                self.assertIn("kernel32.dll", needed)
                self.assertEqual(needed - WINDOWS - set(places.FFMPEG), set())

    def test_programs_do_not_import_the_module(self):
        for name in ("velto-host.exe", "velto-host-example.exe", "velto-recorder-example.exe"):
            with self.subTest(name):
                self.assertNotIn(places.MODULE.lower(), imports(name))

    def test_headers_enable_address_randomization_and_non_executable_data(self):
        for name in OWN:
            with self.subTest(name):
                text = headers(name)
                # Exactly these flags: high entropy, dynamic base, NX compatible.
                self.assertRegex(text, r"DllCharacteristics\s+00000160\n")
                # Windows uses all 64 bits only for an image base above 4 GiB.
                base = re.search(r"ImageBase\s+([0-9a-f]{16})", text)
                self.assertGreaterEqual(int(base[1], 16), 2**32)

    def test_no_section_is_writable_and_executable_and_relocations_are_kept(self):
        for name in OWN:
            with self.subTest(name):
                found = re.findall(r"^ *\d+ (\S+) +([0-9a-f]{8}) .*\n +(\S.*)$", sections(places.BIN / name), re.M)
                self.assertEqual([section for section, _, flags in found
                                  if "CODE" in flags and "READONLY" not in flags], [])
                self.assertIn(".reloc", [section for section, size, _ in found if int(size, 16) > 0])
                self.assertNotIn("relocations stripped", headers(name))

    def test_version_resource_has_version_and_file_name(self):
        version = os.environ["VELTO_VERSION"]
        for name in (places.MODULE, "velto-host.exe"):
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                section = pathlib.Path(folder) / "rsrc"
                subprocess.run(["x86_64-w64-mingw32-objcopy", "--dump-section", f".rsrc={section}",
                                str(places.BIN / name), f"{folder}/copy"], check=True)
                text = section.read_bytes().decode("utf-16-le", errors="replace")
                self.assertIn("VS_VERSION_INFO\0", text)
                self.assertRegex(text, rf"FileVersion\0+{re.escape(version)}\0")
                self.assertRegex(text, rf"OriginalFilename\0+{re.escape(name)}\0")

    def test_debug_information_is_in_a_separate_file(self):
        for name in (places.MODULE, "velto-host.exe"):
            with self.subTest(name):
                self.assertLess((places.BIN / name).stat().st_size, 4_000_000)
                self.assertNotIn(".debug_info", sections(places.BIN / name))
                self.assertIn(".gnu_debuglink", sections(places.BIN / name))
                self.assertIn(".debug_info", sections(places.BIN.parent / "symbols" / f"{name}.debug"))


if __name__ == "__main__":
    unittest.main()
