// The microphone's road for the fault walk: opened, read, restarted for another default and closed five
// times, with the module's own threads.
#pragma once

#include "fault_walk.h"

namespace velto_test {

// The steps of a round; four more rounds follow.
enum class MicrophoneStep { Opening, Capturing, Restarting, Closing };

std::unique_ptr<Road> MakeMicrophoneRoad();

// What a fault in that step leads to.
Expectation ExpectedOfMicrophone(const FaultCase &faulty, MicrophoneStep step, int use);

} // namespace velto_test
