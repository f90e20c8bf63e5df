#include "check/module_log.h"

#include <windows.h>

#include <system_error>

#include "check/machine_info.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t variable[] = L"VELTO_LOG_FILE";

uintmax_t SizeOf(const fs::path &file)
{
    std::error_code error;
    const uintmax_t bytes = fs::file_size(file, error);
    return error ? 0 : bytes;
}

} // namespace

ModuleLog::ModuleLog(const fs::path &folder) : m_file(host::EnvironmentVariable(variable))
{
    m_isOfUser = !m_file.empty();
    if (!m_isOfUser) {
        m_file = folder / "module.log";
        SetEnvironmentVariableW(variable, m_file.c_str());
    }
    m_earlierBytes = SizeOf(m_file);
}

ModuleLog::~ModuleLog()
{
    if (!m_isOfUser) {
        SetEnvironmentVariableW(variable, nullptr);
    }
}

std::string ModuleLog::Commit() const
{
    // A smaller file is a new one: the module has renamed the full one.
    return CommitInLog(m_file, SizeOf(m_file) < m_earlierBytes ? 0 : m_earlierBytes);
}

} // namespace velto::check
