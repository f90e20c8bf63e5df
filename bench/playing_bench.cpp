// Plays a file in a loop, in real time, through the shipped DLL or through the floor (write_floor.h and two
// speaker_floor.h, one of which gets no blocks). The loop is the same for both, so that the difference in
// processor time is that between the module and its floor.
//
//   velto-playing-bench module|floor FILE.aac SECONDS
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "bench/aac_units.h"
#include "bench/module_writer.h"
#include "bench/run_with_module.h"
#include "bench/speaker_floor.h"
#include "bench/write_floor.h"

namespace velto::bench {
namespace {

constexpr std::chrono::microseconds unitDuration{21333};
constexpr size_t unitsInAdvance = 5; // as many as the module's delay queue takes
// Before the first unit. Units that are sent while the streams open would keep the endpoint buffer full.
constexpr DWORD openingMs = 2000;

// Returns the number of units written.
int Send(std::vector<AacUnit> units, double seconds, const std::function<void(AacUnit &)> &write)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    const auto end =
        begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    int sent = 0;
    for (Clock::time_point next = begin; next < end; ++sent) {
        write(units[static_cast<size_t>(sent) % units.size()]);
        if (sent >= static_cast<int>(unitsInAdvance)) {
            next += unitDuration;
            std::this_thread::sleep_until(next);
        }
    }
    return sent;
}

void PlayModule(std::vector<AacUnit> units, double seconds)
{
    ModuleWriter module;
    module.Write(units.front()); // opens the streams
    Sleep(openingMs);
    Send(std::move(units), seconds,
         [&module](AacUnit &unit) { Require(module.Write(unit) == VELTO_OK, "writing a unit"); });
}

void PlayFloor(std::vector<AacUnit> units, double seconds)
{
    BlockQueue queue;
    BlockQueue unused;
    SpeakerFloor speaker(queue);
    const SpeakerFloor silent(unused);
    WriteFloor floor(queue);
    Sleep(openingMs);
    const int sent = Send(std::move(units), seconds, [&floor](AacUnit &unit) { floor.Write(unit); });
    const int played = speaker.Played();
    std::printf("%d of %d blocks played\n", played, sent);
    Require(played >= sent - 1 && silent.Played() == 0, "playing all blocks but the last");
}

int Run(int argc, char **argv)
{
    const std::string what = argc == 4 ? argv[1] : "";
    const double seconds = argc == 4 ? std::atof(argv[3]) : 0;
    if ((what != "module" && what != "floor") || !(seconds > 0)) {
        std::fprintf(stderr, "usage: velto-playing-bench module|floor FILE.aac SECONDS\n");
        return 2;
    }
    (what == "module" ? PlayModule : PlayFloor)(ReadAacUnits(argv[2]), seconds);
    return 0;
}

} // namespace
} // namespace velto::bench

int main(int argc, char **argv)
{
    return velto::bench::RunWithModule("velto-playing-bench", velto::bench::Run, argc, argv);
}
