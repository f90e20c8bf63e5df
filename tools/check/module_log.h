// The log of the module while checks run.
#pragma once

#include <cstdint>
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

    // The commit that the module named since the constructor; empty if it has not. Earlier lines do not
    // count: a user's file may have those of another build.
    std::string Commit() const;

private:
    bool m_isOfUser;
    std::filesystem::path m_file;
    uintmax_t m_earlierBytes; // of the file, when this object was made
};

} // namespace velto::check
