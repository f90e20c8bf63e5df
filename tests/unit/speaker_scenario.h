// The renderer's scenario for the fault walk: four rounds of opening, playing, switching the endpoint,
// replacing an invalidated client and closing. The test's thread makes the play thread's calls.
#pragma once

#include "fault_walk.h"

namespace velto_test {

// The steps of each round. Rebuilding: the client is invalidated during a block. Probing: a property changes,
// so the renderer queries its client.
enum class SpeakerStep { Opening, Playing, Switching, Rebuilding, Probing, Closing };

std::unique_ptr<Scenario> MakeSpeakerScenario();

// Returns the outcome of a fault in this step. `bufferFrames`: the size of the endpoint buffer.
Expectation ExpectedOfSpeaker(const FaultCase &faulty, SpeakerStep step, int use, uint32_t bufferFrames);
// The renderer's rows of the table of faults.
std::vector<FaultRow> SpeakerFaultRows();

} // namespace velto_test
