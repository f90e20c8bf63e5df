#include "logging/first_line.h"

#include <fmt/format.h>

#include "velto-commit.h"

#ifdef _WIN32

#include <windows.h>

#include <cstdint>
#include <cstring>

// Exported by ntdll, but not declared in the SDK's headers for programs. GetVersionEx returns an old version
// to programs without a manifest.
extern "C" __declspec(dllimport) LONG NTAPI RtlGetVersion(RTL_OSVERSIONINFOW *version);

// The linker's symbol for the beginning of the binary.
extern "C" const std::uint8_t __ImageBase[]; // NOLINT(bugprone-reserved-identifier)

namespace logging {
namespace {

struct CodeView {
    char signature[4];
    GUID guid;
    std::uint32_t age;
};

std::string SystemVersion()
{
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    if (const auto wineVersion = reinterpret_cast<const char *(*)()>(
            reinterpret_cast<void *>(GetProcAddress(ntdll, "wine_get_version")))) {
        return fmt::format("Wine {}", wineVersion());
    }
    RTL_OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    RtlGetVersion(&version);
    return fmt::format("Windows {}.{}.{}", version.dwMajorVersion, version.dwMinorVersion,
                       version.dwBuildNumber);
}

template <typename Record>
Record ReadAt(std::size_t offset)
{
    Record record;
    std::memcpy(&record, &__ImageBase[offset], sizeof(record));
    return record;
}

} // namespace

std::string BuildId()
{
    const auto headers =
        ReadAt<IMAGE_NT_HEADERS64>(static_cast<std::size_t>(ReadAt<IMAGE_DOS_HEADER>(0).e_lfanew));
    const IMAGE_DATA_DIRECTORY &debug = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_DEBUG];
    for (std::size_t i = 0; i < debug.Size / sizeof(IMAGE_DEBUG_DIRECTORY); ++i) {
        const auto entry =
            ReadAt<IMAGE_DEBUG_DIRECTORY>(debug.VirtualAddress + i * sizeof(IMAGE_DEBUG_DIRECTORY));
        if (entry.Type != IMAGE_DEBUG_TYPE_CODEVIEW || entry.SizeOfData < sizeof(CodeView)) {
            continue;
        }
        const auto record = ReadAt<CodeView>(entry.AddressOfRawData);
        if (std::memcmp(record.signature, "RSDS", sizeof(record.signature)) == 0) {
            std::string id =
                fmt::format("{:08X}{:04X}{:04X}", record.guid.Data1, record.guid.Data2, record.guid.Data3);
            for (const std::uint8_t byte : record.guid.Data4) {
                id += fmt::format("{:02X}", byte);
            }
            return id + fmt::format("{:X}", record.age);
        }
    }
    return "none";
}

} // namespace logging

#else

namespace logging {
namespace {

std::string SystemVersion()
{
    return "no Windows";
}

} // namespace

std::string BuildId()
{
    return "none";
}

} // namespace logging

#endif

namespace logging {

std::string FirstLine()
{
    return fmt::format("LibVeltoAudioHandler {}, commit {}, build id {}, FFmpeg {}, {}", VELTO_VERSION,
                       VELTO_COMMIT, BuildId(), VELTO_FFMPEG_VERSION, SystemVersion());
}

} // namespace logging
