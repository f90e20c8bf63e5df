// The renderer's road for the fault walk: opened, played, switched, rebuilt and closed ten times, as
// the play thread does it, on the test's own thread.
#pragma once

#include "fault_walk.h"

namespace velto_test {

// The steps of a round; nine more rounds follow.
enum class SpeakerStep { Opening, Playing, Switching, Rebuilding, Probing, Closing };

std::unique_ptr<Road> MakeSpeakerRoad();

// What a fault in that step leads to. `bufferFrames`: of the endpoint.
Expectation ExpectedOfSpeaker(const FaultCase &faulty, SpeakerStep step, int use, uint32_t bufferFrames);

} // namespace velto_test
