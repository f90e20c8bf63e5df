// The command `velto-host check`: certifies a build of the module against its contract.
#pragma once

#include <string>

#include "check/check_options.h"

namespace velto::check {

// Runs the checks, writes the reports and prints a summary, or does what --list or --verify ask for.
// `modulePath` as for host::Module. With `json`, stdout has only a JSON object. Returns the exit code. Throws
// host::FileError if a report cannot be read or written: those to be written are opened before the first
// check.
int RunCheckCommand(const CheckOptions &options, const std::string &modulePath, bool json);

} // namespace velto::check
