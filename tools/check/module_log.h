// The log of the module while checks run.
#pragma once

#include <filesystem>
#include <string>

namespace velto::check {

// Checks provoke errors, which would fill the log of this user. While this object exists, processes that this
// program starts log to a separate file, unless the user has named a file in the variable VELTO_LOG_FILE.
class ModuleLog {
public:
    // `folder`: for the file.
    explicit ModuleLog(const std::filesystem::path &folder);
    ~ModuleLog();
    ModuleLog(const ModuleLog &) = delete;
    ModuleLog &operator=(const ModuleLog &) = delete;

    // The commit that the module named since the constructor; empty if it has not. A user's file may have the
    // lines of another build, so it does not count unless it was empty.
    std::string Commit() const;

private:
    bool m_isOfUser;
    std::filesystem::path m_file; // empty: no commit can be read
};

} // namespace velto::check
