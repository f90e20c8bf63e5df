// Runs of checks for the tests of the reports.
#pragma once

#include "check/portable/results.h"

namespace velto::check {

CheckResult MakeResult(std::string name, int level, Outcome outcome, std::vector<std::string> clauses = {});

// A run of level 8 in which everything passed, with measured times and a warning.
Run PassedRun();
// A run in which one check failed, one crashed, one hung, one was skipped, and sound had gaps and swapped
// frames.
Run FailedRun();
// A run that heard nothing.
Run SilentRun();

} // namespace velto::check
