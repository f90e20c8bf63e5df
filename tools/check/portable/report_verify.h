// Whether a report belongs to the files of a folder.
#pragma once

#include <string>
#include <vector>

#include "check/portable/results.h"

namespace velto::check {

struct Verification {
    bool isOfTheseBytes = false; // every file is the one that the report names, and none is missing or extra
    bool hasPassed = false;      // the report's verdict is PASSED
    std::vector<std::string> lines; // for people: one for each file that differs, then one about the verdict
};

// `actual` as in Run: the module first, then the DLLs next to it that it needs. The module may have another
// name than in the report; the DLLs may not, because the module loads them by name. The case of ASCII letters
// does not matter.
Verification VerifyReport(const Run &report, const std::vector<FileIdentity> &actual);

} // namespace velto::check
