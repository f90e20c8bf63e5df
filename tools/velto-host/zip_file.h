// Writes a ZIP file whose entries are compressed with deflate. All of it is in memory until it is written.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace velto::host {

class ZipFile {
public:
    // `name` is UTF-8 with "/" between folders. Throws FileError for more than 2 GiB.
    void Add(std::string_view name, std::string_view content);

    // Throws FileError.
    void Write(const std::filesystem::path &path) const;

    const std::vector<std::string> &Names() const { return m_names; }

private:
    std::string m_entries;
    std::string m_directory;
    std::vector<std::string> m_names;
};

} // namespace velto::host
