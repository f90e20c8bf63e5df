// The microphone's scenario for the fault walk: five rounds of opening, reading, moving to another default
// device and closing, on the module's own threads.
#pragma once

#include "fault_walk.h"

namespace velto_test {

// The steps of each round.
enum class MicrophoneStep { Opening, Capturing, Restarting, Closing };

std::unique_ptr<Scenario> MakeMicrophoneScenario();

// Returns the outcome of a fault in this step.
Expectation ExpectedOfMicrophone(const FaultCase &faulty, MicrophoneStep step, int use);

} // namespace velto_test
