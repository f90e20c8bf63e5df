// What a run says about each clause of the contract.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "check/portable/clause.h"
#include "check/portable/results.h"

namespace velto::check {

enum class ClauseOutcome {
    PASSED,      // a check that covers the clause passed, and no check found it broken
    BROKEN,      // at least one check found it broken
    SKIPPED,     // all checks of the run that cover it were skipped
    NOT_CHECKED, // no check of the run covers it, or those that do ended early for another reason
};
std::string_view NameOf(ClauseOutcome outcome); // "passed", ...

struct ClauseResult {
    std::string id;
    const Clause *clause = nullptr; // null for a clause of another version of this program
    ClauseOutcome outcome = ClauseOutcome::NOT_CHECKED;
    std::vector<const CheckResult *> checks; // that cover the clause; they belong to the run
};

// All clauses in the order of the contract, then unknown ones that results name.
std::vector<ClauseResult> ClauseResults(const Run &run);

} // namespace velto::check
