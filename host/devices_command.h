// velto-host devices: the Windows sound endpoints, so that one can tell where the module plays. Asks
// Core Audio itself; the module is not loaded.
#pragma once

#include "host/exit_code.h"
#include "host/output.h"

namespace velto::host {

ExitCode ShowDevices(const Output &output);

} // namespace velto::host
