"""CMake generates the build for Visual C++: clang-cl stands in for the compiler. Nothing is compiled."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import places

FFMPEG = pathlib.Path(os.environ["VELTO_FFMPEG_ROOT"])
ZLIB = pathlib.Path("/usr/x86_64-w64-mingw32/include")


class Generation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="velto msvc ")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        compiler = cls.folder / "clang-cl"  # clang chooses its mode by its name
        compiler.symlink_to(pathlib.Path(shutil.which("clang")).resolve())
        ffmpeg, libraries = cls.folder / "ffmpeg", cls.folder / "libraries"
        for path in (ffmpeg / "lib", libraries / "lib", libraries / "include"):
            path.mkdir(parents=True)
        for name in ("include", "bin"):
            (ffmpeg / name).symlink_to(FFMPEG / name)
        for name in ("avcodec", "avformat", "avutil", "swresample"):
            (ffmpeg / "lib" / f"{name}.lib").touch()
        (libraries / "lib" / "zlib.lib").touch()
        for name in ("zlib.h", "zconf.h"):
            shutil.copy(ZLIB / name, libraries / "include")
        options = {"CMAKE_SYSTEM_NAME": "Windows", "CMAKE_SYSTEM_PROCESSOR": "AMD64", "CMAKE_LINKER": shutil.which("lld-link"),
                   "CMAKE_RC_COMPILER": shutil.which("llvm-rc"), "CMAKE_MT": shutil.which("true"),
                   "CMAKE_PREFIX_PATH": libraries, "VELTO_FFMPEG_ROOT": ffmpeg}
        for language in ("C", "CXX"):
            # There are no headers and libraries to link a program that tests the compiler.
            options |= {f"CMAKE_{language}_COMPILER": compiler, f"CMAKE_{language}_COMPILER_WORKS": "1",
                        f"CMAKE_{language}_COMPILER_TARGET": "x86_64-pc-windows-msvc"}
        result = subprocess.run(["cmake", "--preset", "windows-msvc", "-B", cls.folder / "build",
                                 *(f"-D{name}={value}" for name, value in options.items())], cwd=places.REPOSITORY,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        assert result.returncode == 0, result.stdout
        text = (cls.folder / "build" / "build.ninja").read_text("utf-8").replace("$ ", " ")
        cls.rules = {name: block for name, block in re.findall(r"^build ([^\s:]+)[ :](.*?)\n\n", text, re.M | re.S)}

    def value(self, output, name):
        """A variable of the rule that makes a file."""
        return re.search(rf"^  {name} = (.*)$", self.rules[output], re.M)[1]

    def test_programs_link_only_libraries_of_visual_cpp(self):
        for output in ("bin/velto-host.exe", "bin/LibVeltoAudioHandler.dll"):
            with self.subTest(output):
                libraries = self.value(output, "LINK_LIBRARIES")
                self.assertIn("avcodec.lib", libraries)
                self.assertNotRegex(libraries, r"(^| )-|\.a( |$)")
                self.assertNotIn("-Wl", self.value(output, "LINK_FLAGS"))
        self.assertIn("zlib.lib", self.value("bin/velto-host.exe", "LINK_LIBRARIES"))

    def test_sources_are_compiled_with_static_runtime_and_visual_cpps_options(self):
        objects = [output for output in self.rules if output.endswith(".cpp.obj")]
        self.assertGreater(len(objects), 50)
        for output in objects:
            flags = self.value(output, "FLAGS").split()
            with self.subTest(output):
                self.assertTrue({"/W4", "/utf-8", "/permissive-", "-MT"} <= set(flags), flags)
                self.assertNotIn("-O0", flags)
                self.assertFalse([flag for flag in flags if flag.startswith(("-f", "-Wall", "-Wextra"))], flags)


if __name__ == "__main__":
    unittest.main()
