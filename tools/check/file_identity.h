// The files that a run of checks is about.
#pragma once

#include <string>
#include <vector>

#include "check/portable/results.h"

namespace velto::check {

// The module, then each DLL of its folder that it needs, directly or through another one of them.
// `modulePath` is UTF-8, or empty for the module in this program's folder. A file that cannot be read has no
// SHA-256. Does not load the module.
std::vector<FileIdentity> IdentifyFiles(const std::string &modulePath);

} // namespace velto::check
