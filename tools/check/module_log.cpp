#include "check/module_log.h"

#include <windows.h>

#include <system_error>

#include "check/machine_info.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t variable[] = L"VELTO_LOG_FILE";

bool HasContent(const fs::path &file)
{
    std::error_code error;
    const uintmax_t bytes = fs::file_size(file, error);
    return !error && bytes > 0;
}

} // namespace

ModuleLog::ModuleLog(const fs::path &folder) : m_file(host::EnvironmentVariable(variable))
{
    m_isOfUser = !m_file.empty();
    if (!m_isOfUser) {
        m_file = folder / "module.log";
        SetEnvironmentVariableW(variable, m_file.c_str());
    } else if (HasContent(m_file)) {
        m_file.clear();
    }
}

ModuleLog::~ModuleLog()
{
    if (!m_isOfUser) {
        SetEnvironmentVariableW(variable, nullptr);
    }
}

std::string ModuleLog::Commit() const
{
    return m_file.empty() ? std::string() : CommitInLog(m_file);
}

} // namespace velto::check
