// The result of a check, from the journal of its process and the way in which the process ended.
#pragma once

#include <cstdint>
#include <string>

#include "check/portable/check.h"
#include "check/portable/check_journal.h"
#include "check/portable/results.h"

namespace velto::check {

struct ProcessEnd {
    enum class Kind {
        EXITED,      // with `exitCode`, also after a crash
        TIMED_OUT,   // ended by velto-host at the check's time limit
        INTERRUPTED, // ended by velto-host after Ctrl-C
        NOT_STARTED, // `error` says why
    };

    Kind kind = Kind::NOT_STARTED;
    uint32_t exitCode = 0;
    double seconds = 0; // of the process's life
    bool isUnderWine = false;
    std::string error;
};

// A journal without a verdict, of a process that has begun, is the module's fault: the clauses of the last
// step are broken. Once the verdict is written, the end of the process does not change it. The exception are
// the checks of the lifecycle: there, a fault of the module's code breaks the clauses of the last step, also
// if the process survived it. A death or a hang outside of the module's code is a warning under Wine, if no
// other code than Wine's is known to be the place, and the module's fault elsewhere.
// Other code may raise and handle exceptions while the module calls it: on Windows, such a fault counts at
// the end of the process only.
CheckResult ResultOf(const Check &check, const Journal &journal, const ProcessEnd &end);

// Whether a fault of the module counts in a process that survived it.
bool CountsIfSurvived(const FaultRecord &fault, const ProcessEnd &end);

} // namespace velto::check
