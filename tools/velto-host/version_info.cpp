#include "velto-host/version_info.h"

#include <windows.h>

#include <bcrypt.h>

#include <array>
#include <cstring>
#include <span>

#include "velto-commit.h"

#include "velto-host/log_files.h"
#include "velto-host/module.h"
#include "velto-host/output.h"
#include "velto-host/windows_text.h"

namespace velto::host {
namespace {

constexpr std::array ffmpegNames{"avcodec-59.dll", "avformat-59.dll", "avutil-57.dll", "swresample-4.dll"};
constexpr size_t sha256Bytes = 32;

std::string Hex(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        text += Format("{:02x}", byte);
    }
    return text;
}

std::string Sha256(std::string_view content)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0))) {
        return {};
    }
    std::array<uint8_t, sha256Bytes> hash{};
    const NTSTATUS status =
        BCryptHash(algorithm, nullptr, 0,
                   reinterpret_cast<PUCHAR>(const_cast<char *>(content.data())), // only read
                   static_cast<ULONG>(content.size()), hash.data(), static_cast<ULONG>(hash.size()));
    BCryptCloseAlgorithmProvider(algorithm, 0);
    return BCRYPT_SUCCESS(status) ? Hex(hash) : "";
}

template <typename Record>
bool ReadRecord(std::string_view content, size_t offset, Record &record)
{
    if (offset > content.size() || content.size() - offset < sizeof(record)) {
        return false;
    }
    std::memcpy(&record, content.data() + offset, sizeof(record));
    return true;
}

// The position in the file of an address in the loaded binary; the file's size if there is none.
size_t FilePosition(std::string_view content, size_t sections, size_t count, uint32_t address)
{
    for (size_t i = 0; i < count; ++i) {
        IMAGE_SECTION_HEADER section;
        if (ReadRecord(content, sections + i * sizeof(section), section) &&
            address >= section.VirtualAddress && address - section.VirtualAddress < section.SizeOfRawData) {
            return size_t{section.PointerToRawData} + (address - section.VirtualAddress);
        }
    }
    return content.size();
}

// The linker's checksum in the CodeView record, or "".
std::string BuildId(std::string_view content)
{
    IMAGE_DOS_HEADER dos;
    IMAGE_NT_HEADERS64 nt;
    if (!ReadRecord(content, 0, dos) || dos.e_lfanew < 0 ||
        !ReadRecord(content, static_cast<size_t>(dos.e_lfanew), nt) || nt.Signature != IMAGE_NT_SIGNATURE) {
        return {};
    }
    const size_t sections = static_cast<size_t>(dos.e_lfanew) + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                            nt.FileHeader.SizeOfOptionalHeader;
    const IMAGE_DATA_DIRECTORY &debug = nt.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_DEBUG];
    const size_t place =
        FilePosition(content, sections, nt.FileHeader.NumberOfSections, debug.VirtualAddress);
    struct CodeView {
        std::array<char, 4> signature;
        GUID guid;
        uint32_t age;
    };
    for (size_t i = 0; i < debug.Size / sizeof(IMAGE_DEBUG_DIRECTORY); ++i) {
        IMAGE_DEBUG_DIRECTORY entry;
        CodeView record;
        if (ReadRecord(content, place + i * sizeof(entry), entry) &&
            entry.Type == IMAGE_DEBUG_TYPE_CODEVIEW && ReadRecord(content, entry.PointerToRawData, record) &&
            std::memcmp(record.signature.data(), "RSDS", 4) == 0) {
            std::string id =
                Format("{:08X}{:04X}{:04X}", record.guid.Data1, record.guid.Data2, record.guid.Data3);
            for (const uint8_t byte : record.guid.Data4) {
                id += Format("{:02X}", byte);
            }
            return id + Format("{:X}", record.age);
        }
    }
    return {};
}

// A string of a file's version resource, or "".
std::string VersionString(std::vector<uint8_t> &resource, const wchar_t *name)
{
    void *text = nullptr;
    UINT length = 0;
    struct Translation {
        WORD language, codePage;
    } *translation = nullptr;
    if (resource.empty() ||
        VerQueryValueW(resource.data(), LR"(\VarFileInfo\Translation)",
                       reinterpret_cast<void **>(&translation), &length) == FALSE ||
        length < sizeof(Translation)) {
        return {};
    }
    const std::wstring path =
        ToWide(Format(R"(\StringFileInfo\{:04x}{:04x}\)", translation->language, translation->codePage)) +
        name;
    if (VerQueryValueW(resource.data(), path.c_str(), &text, &length) == FALSE || length == 0) {
        return {};
    }
    return ToUtf8(static_cast<const wchar_t *>(text));
}

std::vector<uint8_t> VersionResource(const std::filesystem::path &file)
{
    DWORD unused = 0;
    std::vector<uint8_t> resource(GetFileVersionInfoSizeW(file.c_str(), &unused));
    if (resource.empty() ||
        GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data()) == FALSE) {
        resource.clear();
    }
    return resource;
}

} // namespace

std::string ProgramVersion()
{
    return VELTO_VERSION ", commit " VELTO_COMMIT;
}

std::string SystemVersion()
{
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    const auto function = [ntdll](const char *name) {
        return reinterpret_cast<void *>(GetProcAddress(ntdll, name));
    };
    RTL_OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    // GetVersionEx returns an old version to programs without a manifest.
    if (const auto getVersion =
            reinterpret_cast<LONG(WINAPI *)(RTL_OSVERSIONINFOW *)>(function("RtlGetVersion"))) {
        getVersion(&version);
    }
    const std::string windows =
        Format("Windows {}.{}.{}", version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber);
    const auto wineVersion = reinterpret_cast<const char *(*)()>(function("wine_get_version"));
    return wineVersion == nullptr ? windows : Format("Wine {} as {}", wineVersion(), windows);
}

BinaryFacts ExamineBinary(const std::filesystem::path &file)
{
    BinaryFacts facts;
    facts.name = ToUtf8(file.filename().wstring());
    try {
        std::string content;
        ReadBlocks(file, [&](std::string_view block) { content += block; });
        facts.bytes = content.size();
        facts.sha256 = Sha256(content);
        facts.buildId = BuildId(content);
        std::vector<uint8_t> resource = VersionResource(file);
        facts.version = VersionString(resource, L"FileVersion");
        facts.product = VersionString(resource, L"ProductVersion");
    } catch (const FileError &error) {
        facts.error = error.what();
    }
    return facts;
}

std::vector<BinaryFacts> ExamineBinaries(const std::string &modulePath)
{
    const std::filesystem::path module = Module::FullPath(modulePath);
    std::vector<BinaryFacts> facts{ExamineBinary(module)};
    for (const char *name : ffmpegNames) {
        facts.push_back(ExamineBinary(module.parent_path() / name));
    }
    facts.push_back(ExamineBinary(Module::FullPath("").replace_filename("velto-host.exe")));
    return facts;
}

std::string VersionText()
{
    std::string text = "velto-host " + ProgramVersion();
    std::vector<BinaryFacts> binaries = ExamineBinaries("");
    binaries.pop_back(); // this program
    for (const BinaryFacts &binary : binaries) {
        const bool isFfmpeg = binary.name != binaries[0].name;
        text += "\n" + binary.name + " " +
                (!binary.error.empty()
                     ? "cannot be read"
                     : (binary.version.empty() ? "without a version" : binary.version) +
                           (isFfmpeg && !binary.product.empty() ? ", FFmpeg " + binary.product : "") +
                           (binary.buildId.empty() ? "" : ", build id " + binary.buildId));
    }
    return text + "\n" + SystemVersion();
}

} // namespace velto::host
