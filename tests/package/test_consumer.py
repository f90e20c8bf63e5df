"""Hosts find and link the unpacked package with CMake and pkg-config, and run. The package may be moved."""

import os
import pathlib
import shutil
import unittest

import packages

SOURCES = pathlib.Path(__file__).resolve().parent / "consumer"
TOOLCHAIN = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_SYSTEM_NAME=Windows",
             f"-DCMAKE_C_COMPILER={packages.GCC}", f"-DCMAKE_CXX_COMPILER={packages.GXX}"]
DEVICES = ["speaker1", "ModemSpeaker1", "ModemMic1", "mic1"]


class Consumer(packages.Unpacked):
    def setUp(self):
        self.build = self.root / self.id().rpartition(".")[2]

    def configure(self, source, *options, expect=0, package=None):
        return packages.run("cmake", "-S", source, "-B", self.build, *TOOLCHAIN,
                            f"-DCMAKE_PREFIX_PATH={package or self.package}", *options, expect=expect)

    def assert_prints_devices(self, program):
        self.assertEqual(packages.run_windows(program).split(), DEVICES)

    def build_with_pkg_config(self, package):
        environment = dict(os.environ, PKG_CONFIG_LIBDIR=str(package / "lib" / "pkgconfig"), PKG_CONFIG_PATH="")
        prefix = packages.run("pkg-config", "--variable=prefix", "velto-audio-handler", env=environment).strip()
        self.assertEqual(pathlib.Path(prefix.replace("\\ ", " ")).resolve(), package.resolve())
        self.build.mkdir()
        for compiler, source in ((packages.GCC, "consumer.c"), (f"{packages.GXX} -static", "consumer.cpp")):
            program = self.build / f"{source.replace('.', '-')}.exe"
            # The shell splits and unquotes pkg-config's output as a Makefile does.
            packages.run("sh", "-c", f'eval {compiler} "{SOURCES}/{source}" -o \'"{program}"\' '
                                     '"$(pkg-config --cflags --libs velto-audio-handler)"', env=environment)
            for dll in (package / "bin").glob("*.dll"):
                shutil.copy(dll, self.build)
            self.assert_prints_devices(program)

    def test_cmake_hosts_in_c_and_cpp_link_the_package_and_run(self):
        self.configure(SOURCES)
        packages.run("cmake", "--build", self.build)
        self.assert_prints_devices(self.build / "consumer-c.exe")
        self.assert_prints_devices(self.build / "consumer-cpp.exe")
        self.assertEqual({path.name for path in self.build.glob("*.dll")},
                         {path.name for path in (self.package / "bin").glob("*.dll")})
        self.assertEqual(list(self.build.glob("*.lock")), [], "only DLLs are added to the folder of the program")

    def test_pkg_config_hosts_in_c_and_cpp_link_the_package_and_run(self):
        self.build_with_pkg_config(self.package)

    def test_moved_package_is_found_by_cmake_and_pkg_config(self):
        moved = self.root / "moved" / "else where"
        shutil.copytree(self.package, moved)
        hidden = self.package.with_name("hidden")
        self.package.rename(hidden)
        self.addCleanup(hidden.rename, self.package)
        self.build_with_pkg_config(moved)
        shutil.rmtree(self.build)
        self.configure(SOURCES, package=moved)
        packages.run("cmake", "--build", self.build)
        self.assert_prints_devices(self.build / "consumer-cpp.exe")

    def test_examples_build_in_the_package_and_load_the_module(self):
        examples = self.package / "share" / "velto-audio-handler" / "examples"
        # No prefix: the examples find the package that contains them.
        packages.run("cmake", "-S", examples, "-B", self.build, *TOOLCHAIN)
        packages.run("cmake", "--build", self.build)
        self.assertTrue((self.build / "velto-recorder-example.exe").is_file())
        empty = self.build / "empty.aac"
        empty.touch()
        # 1: the file has nothing to play.
        output = packages.run_windows(self.build / "velto-host-example.exe", empty, expect=1)
        self.assertEqual([line.partition(":")[0] for line in output.splitlines()[:4]], DEVICES)

    def refusal(self, text):
        source = self.root / "refused"
        source.mkdir(exist_ok=True)
        # Without a language, CMake starts no compiler.
        (source / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.22)\nproject(refused NONE)\n" + text)
        return source

    def test_another_major_version_is_refused(self):
        for version in ("0.9", "2"):
            output = self.configure(self.refusal(f"find_package(VeltoAudioHandler {version} REQUIRED)\n"), expect=1)
            self.assertIn("compatible with requested version", " ".join(output.split()))

    def test_a_host_of_32_bits_is_refused(self):
        # CMake finds the size of pointers out from the compiler.
        output = self.configure(self.refusal("set(CMAKE_SIZEOF_VOID_P 4)\nfind_package(VeltoAudioHandler REQUIRED)\n"),
                                expect=1)
        self.assertIn("(64bit)", output)

    def test_another_system_is_refused_with_the_reason(self):
        output = packages.run("cmake", "-S", self.refusal("find_package(VeltoAudioHandler REQUIRED)\n"), "-B", self.build,
                              f"-DCMAKE_PREFIX_PATH={self.package}", expect=1)
        self.assertIn("is a DLL for Windows", output)


if __name__ == "__main__":
    unittest.main()
