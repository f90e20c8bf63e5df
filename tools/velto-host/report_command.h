// velto-host report: writes a ZIP file for support.
#pragma once

#include <string>

#include "velto-host/options.h"
#include "velto-host/output.h"

namespace velto::host {

// Loads the module to ask for its capabilities. A part of the report that cannot be made has the reason
// instead.
ExitCode WriteReport(const ReportOptions &options, const std::string &modulePath, const Output &output);

} // namespace velto::host
