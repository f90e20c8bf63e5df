#include "check/load_cycle_checks.h"

#include <windows.h>

#include <vector>

#include "check/module_use.h"
#include "check/portable/call_storm.h"
#include "check/portable/process_check_list.h"
#include "velto-host/process_usage.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr int32_t ok = VELTO_OK; // with the type of a result
constexpr uint32_t cycles = 20;
constexpr double pace = 0.1;        // of real devices: a storm lasts about a second
constexpr Seconds longestFree = 2s; // a call that waits for the module's threads takes minutes
constexpr int64_t spareThreads = 3; // that the system may add to its pool meanwhile

// The calls of a correct host.
void UseModule(Context &context, const AudioHandlerTable &table, const AacUnits &units, uint32_t cycle)
{
    context.Step(fmt::format("plays and records, cycle {} of {}", cycle, cycles), {"LIF-7"});
    const auto expectOk = [&](int32_t result, std::string_view slot) {
        context.ExpectEqual(result, ok, "LIF-7", "{} in cycle {} of loading and freeing returned", slot,
                            cycle);
    };
    host::Microphone microphone(table, VELTO_ID_MIC);
    expectOk(microphone.Open(), "OpenAudioRecord");
    expectOk(StartStream(table, VELTO_ID_SPEAKER), "SetAudioParameter");
    for (const std::vector<uint8_t> &unit : units) {
        expectOk(WriteUnit(table, VELTO_ID_SPEAKER, unit), "WriteStreamBuffer");
        const bool isRead = microphone.Read() != host::Microphone::Outcome::REFUSED;
        expectOk(isRead ? ok : microphone.Result(), "ReadStreamBuffer");
    }
    expectOk(microphone.Close(), "CloseAudioRecord");
}

void Storm(Context &context, const AudioHandlerTable &table, const AacUnits &units, uint32_t cycle)
{
    context.Step(fmt::format("calls all slots at random, cycle {} of {}", cycle, cycles), {"THR-1"});
    CallStorm storm(table, units, {.seed = context.random.Next(), .pace = pace, .rounds = 1});
    storm.Finish();
    const StormFigures figures = storm.Figures();
    for (const auto &[difference, times] : figures.FromDocumentation()) {
        context.Expect(false, "THR-1",
                       fmt::format("{} {} time(s) in the storm of cycle {}, which is not documented",
                                   difference, times, cycle));
    }
}

// The module's threads run until the idle release, so the module stays mapped and is found again by the next
// load.
void StormLoadCycles(Context &context)
{
    const AacUnits units = SpeechLikeUnits(30);
    host::ProcessUsage afterFirst{};
    for (uint32_t cycle = 1; cycle <= cycles; ++cycle) {
        context.Step(fmt::format("loads the module, cycle {} of {}", cycle, cycles), {"LIF-7"});
        const auto module = LoadModule(context, "LIF-7");
        UseModule(context, module->Table(), units, cycle);
        Storm(context, module->Table(), units, cycle);
        context.Step(fmt::format("frees the module, cycle {} of {}", cycle, cycles), {"LIF-1"});
        const Seconds time = module->Free();
        context.Expect(time <= longestFree, "LIF-1", fmt::format("FreeLibrary took {:.1f} s", time.count()));
        if (cycle == 1) {
            afterFirst = host::MeasureUsage();
        }
    }
    const host::ProcessUsage afterLast = host::MeasureUsage();
    const auto threads = static_cast<int64_t>(afterLast.threads) - static_cast<int64_t>(afterFirst.threads);
    context.Measured("threads that the cycles added", static_cast<double>(threads), "threads");
    context.Expect(
        threads <= spareThreads, "RES-2",
        fmt::format("{} threads more after {} cycles of loading, a storm and freeing", threads, cycles));
}

} // namespace

std::span<const Check> LoadCycleChecks()
{
    static const std::vector<Check> checks{
        ProcessCheck("storm.load-cycles", StormLoadCycles),
    };
    return checks;
}

} // namespace velto::check
