// velto-host probe: calls every slot of the table with each kind of invalid argument and compares
// what it returns with what the interface documents.
//
// The calls that write may open the sound device, and the one that opens a record the microphone.
#pragma once

#include "host/exit_code.h"
#include "host/module.h"
#include "host/output.h"

namespace velto::host {

ExitCode Probe(const Module &module, const Output &output);

} // namespace velto::host
