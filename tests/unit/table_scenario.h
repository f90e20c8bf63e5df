// The speakers' scenario through the function table, for the fault walk: the first write starts the tracks,
// more writes follow, the tracks are closed, and the idle release ends the scenario. Uses the module's own
// threads.
#pragma once

#include "fault_walk.h"

namespace velto_test {

// Covers only calls to the registry, events, threads and modules.
std::unique_ptr<Scenario> MakeTableScenario();

} // namespace velto_test
