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

FileIdentity Identify(const std::filesystem::path &file)
{
    const host::BinaryFacts facts = host::ExamineBinary(file);
    return {facts.name, facts.version, facts.bytes, facts.error.empty() ? facts.sha256 : std::string()};
}

// Empty for a file that cannot be read; its missing SHA-256 then shows in the report.
std::vector<std::string> NamesNeededBy(const std::filesystem::path &file)
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
bool IsSameName(const std::filesystem::path &file, const std::wstring &name)
{
    return CompareStringOrdinal(file.filename().c_str(), -1, name.c_str(), -1, TRUE) == CSTR_EQUAL;
}

} // namespace

std::vector<FileIdentity> IdentifyFiles(const std::string &modulePath)
{
    std::vector<std::filesystem::path> files{host::Module::FullPath(modulePath)};
    // Grows while it is read: the imports of each file are examined once.
    for (size_t i = 0; i < files.size(); ++i) {
        for (const std::string &name : NamesNeededBy(files[i])) {
            const std::wstring wide = host::ToWide(name);
            const std::filesystem::path needed = files[0].parent_path() / wide;
            std::error_code error;
            const bool isKnown =
                std::any_of(files.begin(), files.end(),
                            [&](const std::filesystem::path &file) { return IsSameName(file, wide); });
            if (!isKnown && std::filesystem::is_regular_file(needed, error)) {
                files.push_back(needed);
            }
        }
    }
    std::vector<FileIdentity> identities(files.size());
    std::transform(files.begin(), files.end(), identities.begin(), Identify);
    return identities;
}

} // namespace velto::check
