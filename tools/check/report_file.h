// A file for a report, opened before the work that is reported.
#pragma once

#include <fstream>
#include <string>

namespace velto::check {

class ReportFile {
public:
    // Creates or empties the file (UTF-8). Throws host::FileError.
    explicit ReportFile(const std::string &path);

    // Throws host::FileError.
    void Write(const std::string &text);

private:
    const std::string m_path;
    std::ofstream m_file;
};

} // namespace velto::check
