// The processes that `velto-host check` starts: one loads the module, makes a check and keeps the journal.
#pragma once

#include "check/check_options.h"

namespace velto::check {

// A check whose name begins with "lifecycle." loads and frees the module itself. For all others, the module
// is loaded before and freed afterwards; a module that cannot be loaded breaks a clause, like any other
// failure.
//
// Returns the process's exit code: that of a broken checker if there is no verdict. Runs on the main thread,
// which is in no COM apartment.
int RunCheckProcess(const CheckProcessOptions &options);

// Uses the module and ends the process meanwhile, with a journal like that of a check. Returns only on
// failure.
int RunEndProcess(const EndProcessOptions &options);

} // namespace velto::check
