// The files that a run of checks is about.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "check/portable/results.h"

namespace velto::check {

// The module, then each DLL of its folder that it needs, directly or through another one of them. `module` is
// a full path. Does not load the module.
std::vector<std::filesystem::path> FilesOf(const std::filesystem::path &module);

// What the reports say about these files. `modulePath` is UTF-8, or empty for the module in this program's
// folder. A file that cannot be read has no SHA-256.
std::vector<FileIdentity> IdentifyFiles(const std::string &modulePath);

// Windows gives a module a DLL that the process has loaded already, whatever the module's folder contains:
// only the names are compared. So a module could run with DLLs of this program that its folder does not have,
// and the report would not name them. Returns a sentence about the first such DLL, empty without one.
// `module` is a full path.
std::string FindForeignDll(const std::filesystem::path &module);

} // namespace velto::check
