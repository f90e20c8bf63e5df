// velto-host log: explains the module's log.
#pragma once

#include "velto-host/options.h"
#include "velto-host/output.h"

namespace velto::host {

// Does not load the module.
ExitCode ExplainLog(const LogOptions &options, const Output &output);

} // namespace velto::host
