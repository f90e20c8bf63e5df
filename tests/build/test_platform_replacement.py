"""The module links a host platform's logging, registry and codec libraries instead of the stand-ins in platform/."""

import os
import pathlib
import subprocess
import tempfile
import unittest

import places

LOGGING = """
#include "logging/logger.h"
static const volatile char mark[] = "logging of another platform";
Logger::Logger(std::string) { (void)mark[0]; }
Logger::~Logger() = default;
void Logger::Log(LOG_MESSAGE_LEVEL, const std::wstringstream &) {}
NrLogger &NrLogger::GetInstance() { static NrLogger logger; return logger; }
void NrLogger::Log(LOG_MESSAGE_LEVEL, std::wstringstream &) {}
"""
REGISTRY = """
#include "registry/registry.h"
static const volatile char mark[] = "registry of another platform";
namespace DE {
bool Registry::GetValue(HKEY, const std::wstring &, const std::wstring &, DWORD &, REGSAM) { return mark[0] == 0; }
template <typename T>
bool Registry::SetValue(HKEY, const std::wstring &, const std::wstring &, T &, REGSAM) { return mark[0] != 0; }
template bool Registry::SetValue(HKEY, const std::wstring &, const std::wstring &, DWORD &, REGSAM);
}
"""
# A header that differs from ours: SetValue takes the value by non-const reference, so it accepts only a DWORD variable.
REGISTRY_HEADER = """
#include <windows.h>
#include <string>
namespace DE {
struct Registry {
    static bool GetValue(HKEY, const std::wstring &, const std::wstring &, DWORD &value, REGSAM);
    template <typename T>
    static bool SetValue(HKEY, const std::wstring &, const std::wstring &, T &value, REGSAM);
};
}
"""
CODEC_HEADERS = dict.fromkeys(["aac_encoder", "audio_frame", "audio_utils", "av_encode_packet", "encode_param"])
CODEC = """
#include "codec/aac_encoder.h"
#include "codec/audio_utils.h"
static const volatile char mark[] = "codec of another platform";
struct AACEncoder::State {};
AACEncoder::AACEncoder() = default;
AACEncoder::~AACEncoder() = default;
bool AACEncoder::Initialize(const EncodeParam &, uint32_t &, uint32_t &) { return mark[0] == 0; }
int32_t AACEncoder::Encode(const AudioFrame *, AVEncodePacket *) { return -1; }
bool AACEncoder::GetDecoderSpecificInfo(uint8_t *, uint32_t, uint32_t &) const { return false; }
void AACEncoder::Close() {}
bool AudioFrame::AllocBuffer(uint32_t, uint32_t, uint32_t, PCMFormat) { return false; }
void AudioFrame::ReleaseBuffer() {}
AVEncodePacket::AVEncodePacket() = default;
AVEncodePacket::~AVEncodePacket() = default;
bool AVEncodePacket::AllocBuffer(uint32_t, bool) { return false; }
void AVEncodePacket::ReleaseBuffer() {}
void RescalePacketTimeStamp(AVEncodePacket *, uint32_t, uint32_t) {}
COMLoadStatus AudioUtils::GetCOMLoadedStatus() { return COM_NOT_LOADED; }
void AudioUtils::UnloadCOM(COMLoadStatus) {}
"""


def run(*command):
    result = subprocess.run([str(part) for part in command], capture_output=True, text=True)
    if result.returncode != 0:
        raise AssertionError(f"{command[0]} failed:\n{result.stdout[-3000:]}{result.stderr[-3000:]}")


def make_library(root, name, headers, source):
    """Makes a folder as a host platform delivers it, with include/<name>/ and lib/.

    Headers without a text are copied from platform/."""
    folder = root / f"platform-{name}"
    (folder / "include" / name).mkdir(parents=True)
    (folder / "lib").mkdir()
    for header, text in headers.items():
        if text is None:
            text = (places.REPOSITORY / "platform" / name / f"{header}.h").read_text()
        (folder / "include" / name / f"{header}.h").write_text(text)
    (root / f"{name}.cpp").write_text(source)
    run("x86_64-w64-mingw32-g++-posix", "-std=c++20", "-DUNICODE", "-I", folder / "include",
        "-c", root / f"{name}.cpp", "-o", root / f"{name}.o")
    run("x86_64-w64-mingw32-ar", "rcs", folder / "lib" / f"libother{name}.a", root / f"{name}.o")
    return folder


class PlatformReplacement(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velto-platform-")
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)

    def configure(self, *options):
        run("cmake", "-G", "Ninja", "-S", places.REPOSITORY, "-B", self.root / "build",
            f"-DCMAKE_TOOLCHAIN_FILE={places.REPOSITORY}/cmake/mingw.cmake", "-DCMAKE_BUILD_TYPE=",
            f"-DVELTO_FFMPEG_ROOT={os.environ['VELTO_FFMPEG_ROOT']}", "-DBUILD_TESTING=OFF", *options)

    def test_replacement_libraries_are_linked_instead_of_stand_ins(self):
        logging = make_library(self.root, "logging", {"logger": None}, LOGGING)
        registry = make_library(self.root, "registry", {"registry": REGISTRY_HEADER}, REGISTRY)
        codec = make_library(self.root, "codec", CODEC_HEADERS, CODEC)
        self.configure(f"-DVELTO_PLATFORM_LOGGING={logging}", f"-DVELTO_PLATFORM_REGISTRY={registry}",
                       f"-DVELTO_PLATFORM_CODEC={codec}")
        run("cmake", "--build", self.root / "build", "--target", places.MODULE.removesuffix(".dll"), "-j", "2")
        module = (self.root / "build" / "bin" / places.MODULE).read_bytes()
        self.assertIn(b"logging of another platform", module)
        self.assertIn(b"registry of another platform", module)
        self.assertIn(b"codec of another platform", module)
        # Texts that only our logging library and our codec library contain.
        for ours in (b"LibVeltoAudioHandler.log", b"Encode: a packet of "):
            self.assertIn(ours, (places.BIN / places.MODULE).read_bytes())
            self.assertNotIn(ours, module)

    def test_platform_folder_without_library_is_refused_with_reason(self):
        with self.assertRaisesRegex(AssertionError, r"needs include/logging/\s+and a library"):
            self.configure(f"-DVELTO_PLATFORM_LOGGING={self.root}")


if __name__ == "__main__":
    unittest.main()
