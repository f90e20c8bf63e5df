// Every result that the system may give to a call of the module, at the first, the tenth and the last
// use of the call, and for good. scripts/fault-walk writes what this walks into docs/reliability.md.
#include "fault_walk.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "microphone_road.h"
#include "speaker_road.h"
#include "table_road.h"

namespace {

using namespace velto_test;

int Of(const WalkTally &tally, FaultKind kind)
{
    const auto found = tally.faults.find(kind);
    return found == tally.faults.end() ? 0 : found->second;
}

// Tells the counts, also in a file where VELTO_FAULT_WALK names a folder for it.
void Report(const std::string &road, const WalkTally &tally)
{
    std::ostringstream text;
    text << "calls " << tally.calls << ", failures " << Of(tally, FaultKind::Failure) << ", null "
         << Of(tally, FaultKind::Null) << ", sizes " << Of(tally, FaultKind::Size) << ", successes "
         << Of(tally, FaultKind::Success) << ", hangs " << Of(tally, FaultKind::Hang) << ", cases "
         << tally.cases << ", lasting " << tally.lasting << ", findings " << tally.findings;
    std::cout << road << ": " << text.str() << std::endl;
    if (const char *folder = std::getenv("VELTO_FAULT_WALK")) {
        std::filesystem::create_directories(folder);
        std::ofstream(std::filesystem::path(folder) / (road + ".txt")) << text.str() << '\n';
    }
}

TEST(FaultWalk, SpeakerRecoversFromEveryFault)
{
    Report("speaker", WalkEveryFault(MakeSpeakerRoad));
}

TEST(FaultWalk, MicrophoneRecoversFromEveryFault)
{
    Report("microphone", WalkEveryFault(MakeMicrophoneRoad));
}

TEST(FaultWalk, SpeakerTableRecoversFromEveryFault)
{
    Report("table", WalkEveryFault(MakeTableRoad));
}

} // namespace
