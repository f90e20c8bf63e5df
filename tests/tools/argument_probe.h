// velto-test-host probe: calls every slot of the table with each kind of invalid argument, and compares the
// results with the documented ones.
//
// The write calls start the speakers, which opens the default loudspeaker. No call opens the microphone.
#pragma once

#include "velto-host/module.h"
#include "velto-host/output.h"

namespace velto_test {

velto::host::ExitCode ProbeArguments(velto::host::Module &module, const velto::host::Output &output);

} // namespace velto_test
