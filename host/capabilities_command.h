// velto-host capabilities: what the module says about itself.
#pragma once

#include "host/exit_code.h"
#include "host/module.h"
#include "host/output.h"

namespace velto::host {

ExitCode ShowCapabilities(const Module &module, const Output &output);

} // namespace velto::host
