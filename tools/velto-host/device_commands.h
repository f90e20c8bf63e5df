// velto-host capabilities lists the devices that the module reports, velto-host devices the endpoints of
// Windows.
#pragma once

#include "velto-host/json.h"
#include "velto-host/module.h"
#include "velto-host/output.h"

namespace velto::host {

// Lists what GetAudioCapability returns.
ExitCode ShowCapabilities(Module &module, const Output &output);

// Lists the sound endpoints of Windows and which are default. Does not load the module.
ExitCode ShowDevices(const Output &output);

// For a report: the endpoints with state, roles and mix format. Without names, an endpoint has a number and a
// part of its id's checksum instead of its name and id, which can contain what is personal.
Json DescribeEndpoints(bool withNames);

// For a report: what GetAudioCapability returns.
Json DescribeCapabilities(Module &module);

} // namespace velto::host
