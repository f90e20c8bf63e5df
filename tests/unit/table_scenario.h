// The speaker's scenario through the host's table, for the fault walk: a frame starts the tracks; more
// frames, the closing of the tracks and the release after the idle time follow. On the module's own threads.
#pragma once

#include "fault_walk.h"

namespace velto_test {

// Covers only the calls that the renderer's scenario does not make.
std::unique_ptr<Scenario> MakeTableScenario();

} // namespace velto_test
