// A folder that is removed with all its files.
#pragma once

#include <filesystem>
#include <system_error>
#include <utility>

namespace velto::check {

class TemporaryFolder {
public:
    // Creates the empty folder. Replaces one that a crash has left, because process ids, of which names are
    // made, come again. Throws std::filesystem::filesystem_error.
    explicit TemporaryFolder(std::filesystem::path path) : m_path(std::move(path))
    {
        std::filesystem::remove_all(m_path);
        std::filesystem::create_directories(m_path);
    }
    ~TemporaryFolder()
    {
        std::error_code ignored; // another program may have opened a file
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::filesystem::path &Path() const { return m_path; }

private:
    const std::filesystem::path m_path;
};

} // namespace velto::check
