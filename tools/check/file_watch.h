// Finds files that a module writes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "check/process_context.h"

namespace velto::check {

// While this object exists, the process's current folder and its folder for temporary files are empty folders
// inside the check's folder for work, where no other program writes. One object at a time.
class WatchedFolders {
public:
    // `process` has a folder for work. Throws std::filesystem::filesystem_error.
    explicit WatchedFolders(const ProcessContext &process);
    ~WatchedFolders();
    WatchedFolders(const WatchedFolders &) = delete;
    WatchedFolders &operator=(const WatchedFolders &) = delete;

    // What happened to each file, by its path, since the previous call or the constructor: "new file",
    // "changed file" or "deleted file". Watches the current folder, the folder for temporary files and the
    // module's folder. Log files (*.log) do not count.
    std::map<std::string, std::string> TakeChanges();

private:
    struct FileState {
        uintmax_t bytes = 0;
        std::filesystem::file_time_type writtenAt;
        bool operator==(const FileState &) const = default;
    };
    using Files = std::map<std::filesystem::path, FileState>;

    Files Read() const;

    const std::filesystem::path m_earlierFolder;
    std::vector<std::filesystem::path> m_folders;
    std::map<std::wstring, std::wstring> m_earlierVariables;
    Files m_before;
};

} // namespace velto::check
