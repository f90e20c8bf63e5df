// velto-host capabilities lists the devices that the module reports, velto-host devices the endpoints of
// Windows.
#pragma once

#include "velto-host/module.h"
#include "velto-host/output.h"

namespace velto::host {

// Lists what GetAudioCapability returns.
ExitCode ShowCapabilities(Module &module, const Output &output);

// Lists the sound endpoints of Windows and which are default. Does not load the module.
ExitCode ShowDevices(const Output &output);

} // namespace velto::host
