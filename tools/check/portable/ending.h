// How a process that used the module ended, and whose fault a bad end is.
#pragma once

#include <cstdint>
#include <string>

#include "check/portable/check_journal.h"
#include "check/portable/process_result.h"

namespace velto::check {

enum class Blame {
    NOBODY,  // the process ended with its own exit code, and nothing crashed
    WINE,    // a crash in Wine's own code, with no code of the module on the stack
    MODULE,  // all other ends
    UNKNOWN, // an end that other code in the process can cause, too: the end is repeated
};

// A verdict on one end, with the reason as a sentence.
struct Ending {
    Blame blame = Blame::NOBODY;
    std::string reason;
};

// `journal` and `end` are those of a process that was to end with `expectedCode`, and whose last step before
// its end is `lastStep`. Faults of the module count even if the process survived them: the loader may
// continue after a crash in DllMain.
Ending ExamineEnd(const Journal &journal, const ProcessEnd &end, uint32_t expectedCode,
                  const std::string &lastStep);

} // namespace velto::check
