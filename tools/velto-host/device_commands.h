// velto-host capabilities and velto-host devices: which devices the module reports, and which endpoints
// Windows has.
#pragma once

#include "velto-host/module.h"
#include "velto-host/output.h"

namespace velto::host {

// Lists what GetAudioCapability returns.
ExitCode ShowCapabilities(const Module &module, const Output &output);

// Lists the sound endpoints of Windows and which are default. Does not load the module.
ExitCode ShowDevices(const Output &output);

} // namespace velto::host
