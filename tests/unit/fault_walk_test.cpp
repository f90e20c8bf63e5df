// Injects every documented result of every system call that the module makes, at several uses of the call and
// permanently. scripts/fault-walk copies the counts into docs/reliability.md.
#include "fault_walk.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "microphone_scenario.h"
#include "speaker_scenario.h"
#include "table_scenario.h"

namespace {

using namespace velto_test;

int FaultsOf(const WalkTally &tally, FaultKind kind)
{
    const auto found = tally.faults.find(kind);
    return found == tally.faults.end() ? 0 : found->second;
}

// Prints the counts. If VELTO_FAULT_WALK names a folder, also writes them to a file there.
void Report(const std::string &scenario, const WalkTally &tally)
{
    std::ostringstream text;
    text << "calls " << tally.calls << ", failures " << FaultsOf(tally, FaultKind::Failure) << ", null "
         << FaultsOf(tally, FaultKind::Null) << ", sizes " << FaultsOf(tally, FaultKind::Size)
         << ", successes " << FaultsOf(tally, FaultKind::Success) << ", hangs "
         << FaultsOf(tally, FaultKind::Hang) << ", cases " << tally.cases << ", lasting " << tally.lasting
         << ", findings " << tally.findings;
    std::cout << scenario << ": " << text.str() << std::endl;
    if (const char *folder = std::getenv("VELTO_FAULT_WALK")) {
        std::filesystem::create_directories(folder);
        std::ofstream(std::filesystem::path(folder) / (scenario + ".txt")) << text.str() << '\n';
    }
}

// Writes the rows of a table of faults for docs/faults.md, and expects that a complete walk has used each of
// them.
void ReportRows(const std::string &scenario, const std::vector<FaultRow> &rows)
{
    std::ostringstream text;
    for (const FaultRow &row : rows) {
        EXPECT_TRUE(row.used || WalkStride() > 1)
            << "no fault matches: " << row.moment << ", " << row.call << ", " << row.result;
        text << row.moment << '\t' << row.call << '\t' << row.result << '\t' << row.line << '\t' << row.remedy
             << '\n';
    }
    if (const char *folder = std::getenv("VELTO_FAULT_WALK")) {
        std::ofstream(std::filesystem::path(folder) / (scenario + ".rows")) << text.str();
    }
}

TEST(FaultWalk, SpeakerRecoversFromEveryFault)
{
    // The first four uses: opening, switching, and the two openings of a rebuilt endpoint.
    Report("speaker", WalkEveryFault(MakeSpeakerScenario, {{1, 2, 3, 4, 10}}));
    ReportRows("speaker", SpeakerFaultRows());
}

TEST(FaultWalk, MicrophoneRecoversFromEveryFault)
{
    // The first four uses: opening and restarting. The order of the threads matters only there.
    Report("microphone_device", WalkEveryFault(MakeMicrophoneDeviceFirst, {{1, 2, 3, 4, 10}}));
    Report("microphone_registration", WalkEveryFault(MakeMicrophoneRegistrationFirst, {{1, 2, 3, 4}, false}));
    ReportRows("microphone", MicrophoneFaultRows());
}

TEST(FaultWalk, SpeakerTableRecoversFromEveryFault)
{
    Report("table", WalkEveryFault(MakeTableScenario, {{1, 2, 10}}));
}

} // namespace
