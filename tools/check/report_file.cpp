#include "check/report_file.h"

#include <filesystem>

#include "velto-host/output.h"
#include "velto-host/windows_text.h"

namespace velto::check {

ReportFile::ReportFile(const std::string &path)
    : m_path(path), m_file(std::filesystem::path(host::ToWide(path)), std::ios::binary | std::ios::trunc)
{
    if (!m_file) {
        throw host::FileError("cannot write " + path);
    }
}

void ReportFile::Write(const std::string &text)
{
    m_file << text << std::flush;
    if (!m_file) {
        throw host::FileError("cannot write " + m_path);
    }
}

} // namespace velto::check
