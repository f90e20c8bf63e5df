// The speaker's road through the host's table, for the fault walk: started by a frame, written to,
// closed, released when idle, with the module's own threads.
#pragma once

#include "fault_walk.h"

namespace velto_test {

// Meets the faults of those calls only that the renderer's own road does not make.
std::unique_ptr<Road> MakeTableRoad();

} // namespace velto_test
