#include "check/file_identity.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "check/portable/imported_names.h"
#include "velto-host/log_files.h"
#include "velto-host/module.h"
#include "velto-host/output.h"
#include "velto-host/version_info.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

namespace fs = std::filesystem;

FileIdentity Identify(const fs::path &file)
{
    const host::BinaryFacts facts = host::ExamineBinary(file);
    return {facts.name, facts.version, facts.bytes, facts.error.empty() ? facts.sha256 : std::string()};
}

// Empty for a file that cannot be read; its missing SHA-256 then shows in the report.
std::vector<std::string> NamesNeededBy(const fs::path &file)
{
    try {
        std::string content;
        host::ReadBlocks(file, [&](std::string_view block) { content += block; });
        return ImportedNames(content);
    } catch (const host::FileError &) {
        return {};
    }
}

// Windows ignores the case of names, also those with other letters than ASCII ones.
bool IsSameName(const fs::path &file, const std::wstring &name)
{
    return CompareStringOrdinal(file.filename().c_str(), -1, name.c_str(), -1, TRUE) == CSTR_EQUAL;
}

struct NeededFiles {
    std::vector<fs::path> present; // the module, then DLLs of its folder
    std::vector<fs::path> absent;  // where DLLs would be; includes those of the system
};

NeededFiles FindNeeded(const fs::path &module)
{
    NeededFiles needed{{module}, {}};
    const auto contains = [](const std::vector<fs::path> &files, const std::wstring &name) {
        return std::any_of(files.begin(), files.end(),
                           [&](const fs::path &file) { return IsSameName(file, name); });
    };
    // Grows while it is read: the imports of each file are examined once.
    for (size_t i = 0; i < needed.present.size(); ++i) {
        for (const std::string &name : NamesNeededBy(needed.present[i])) {
            const std::wstring wide = host::ToWide(name);
            if (!contains(needed.present, wide) && !contains(needed.absent, wide)) {
                const fs::path file = module.parent_path() / wide;
                std::error_code error;
                (fs::is_regular_file(file, error) ? needed.present : needed.absent).push_back(file);
            }
        }
    }
    return needed;
}

// The file of the DLL that this process has loaded under the file's name; empty without one. The name of an
// API set results in a DLL of another name, which all programs use.
fs::path LoadedUnderNameOf(const fs::path &file)
{
    constexpr DWORD longestPath = 32768; // of Windows, with its terminator
    const HMODULE loaded = GetModuleHandleW(file.filename().c_str());
    if (loaded == nullptr) {
        return {};
    }
    std::wstring path(longestPath, L'\0');
    path.resize(GetModuleFileNameW(loaded, path.data(), longestPath));
    return IsSameName(path, file.filename().wstring()) ? fs::path(path) : fs::path();
}

bool IsSameFile(const fs::path &one, const fs::path &other)
{
    std::error_code error;
    return fs::equivalent(one, other, error);
}

bool HaveSameBytes(const fs::path &one, const fs::path &other)
{
    const std::string sha256 = Identify(one).sha256;
    return !sha256.empty() && sha256 == Identify(other).sha256;
}

std::string Text(const fs::path &file)
{
    return host::ToUtf8(file.wstring());
}

} // namespace

std::vector<fs::path> FilesOf(const fs::path &module)
{
    return FindNeeded(module).present;
}

std::string FindForeignDll(const fs::path &module)
{
    const fs::path folder = fs::path(host::ProgramPath()).parent_path();
    if (IsSameFile(folder, module.parent_path())) {
        return {}; // the DLLs that Windows chooses for any host in this folder
    }
    const NeededFiles needed = FindNeeded(module);
    for (const fs::path &file : needed.present) {
        const fs::path loaded = LoadedUnderNameOf(file);
        if (!loaded.empty() && !IsSameFile(loaded, file) && !HaveSameBytes(loaded, file)) {
            return host::Format("the module would run with {}, which differs from {}", Text(loaded),
                                Text(file));
        }
    }
    for (const fs::path &file : needed.absent) {
        const fs::path loaded = LoadedUnderNameOf(file);
        if (!loaded.empty() && IsSameFile(loaded.parent_path(), folder)) {
            return host::Format("the module needs {}, which does not exist, and would run with {}",
                                Text(file), Text(loaded));
        }
    }
    return {};
}

std::vector<FileIdentity> IdentifyFiles(const std::string &modulePath)
{
    const std::vector<fs::path> files = FilesOf(host::Module::FullPath(modulePath));
    std::vector<FileIdentity> identities(files.size());
    std::transform(files.begin(), files.end(), identities.begin(), Identify);
    return identities;
}

} // namespace velto::check
