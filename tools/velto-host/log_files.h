// The files of the module's log, and files of this program.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace velto::host {

// The existing files of the module's log, the oldest first: those that are left of NAME.2.log, NAME.1.log and
// NAME.log. The log is the one that VELTO_LOG_FILE names, else that of this user.
std::vector<std::filesystem::path> ModuleLogFiles();

// Where the module writes its log; empty if there is no place.
std::filesystem::path ModuleLogFile();

// Passes the blocks of a file to `sink`. The module can write to the file, rename and delete it meanwhile.
// `progress` gets the number of bytes so far and the file's size. Throws FileError.
void ReadBlocks(const std::filesystem::path &path, const std::function<void(std::string_view)> &sink,
                const std::function<void(uint64_t, uint64_t)> &progress = {});

// Throws FileError if `output` is one of the files, by any of its names.
void RefuseToReplace(const std::vector<std::filesystem::path> &files, const std::filesystem::path &output);

// Creates or replaces a file. Throws FileError; an incomplete file is removed.
void WriteWholeFile(const std::filesystem::path &path, std::string_view content);

} // namespace velto::host
