// Every result that the system may give to a call of the module, at the first, the tenth and the last
// use of the call, and for good.
#include "fault_walk.h"

#include <gtest/gtest.h>

#include <iostream>

#include "microphone_road.h"
#include "speaker_road.h"
#include "table_road.h"

namespace {

using namespace velto_test;

void Print(const char *road, const WalkTally &tally)
{
    std::cout << road << ": " << tally.calls << " calls, " << tally.faults << " faults, " << tally.cases
              << " cases, of them " << tally.lasting << " lasting" << std::endl;
}

TEST(FaultWalk, TheSpeakerSurvivesEveryFaultAndSoundComesBack)
{
    Print("speaker", WalkEveryFault(MakeSpeakerRoad));
}

TEST(FaultWalk, TheMicrophoneSurvivesEveryFaultAndSoundComesBack)
{
    Print("microphone", WalkEveryFault(MakeMicrophoneRoad));
}

TEST(FaultWalk, TheSpeakerTableSurvivesEveryFaultAndSoundComesBack)
{
    Print("table", WalkEveryFault(MakeTableRoad));
}

} // namespace
