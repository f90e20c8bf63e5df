// What `velto-host check` prints after a run.
#pragma once

#include "check/portable/results.h"
#include "velto-host/output.h"

namespace velto::check {

// The verdict, the broken clauses with their sentences and what was observed, the commands that repeat
// failures, and what was skipped.
void PrintSummary(const Run &run, const host::Output &output);

} // namespace velto::check
