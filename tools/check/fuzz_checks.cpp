#include "check/fuzz_checks.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "check/fuzz_caller.h"
#include "check/module_threads.h"
#include "check/module_use.h"
#include "check/portable/call_storm.h"
#include "check/portable/process_check_list.h"
#include "check/process_context.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;
using TimePoint = std::chrono::steady_clock::time_point;

constexpr double leastSeconds = 15; // without --minutes, or with very few of them
constexpr uint64_t callsPerStep = 200;
constexpr Seconds longestCall = 1s; // a call that decodes a unit takes far less, also on a busy PC

TimePoint EndOfFuzzing(Context &context)
{
    const Seconds time(std::max(CurrentProcess().minutes * 60, leastSeconds));
    return context.environment.Now() + std::chrono::duration_cast<TimePoint::duration>(time);
}

// A random sequence whose calls have no effect would prove nothing.
void RequireEffects(Context &context, const FuzzCaller &caller)
{
    for (const auto &[effect, times] : caller.Effects()) {
        context.Measured(effect, double(times), "times");
    }
    for (const std::string_view effect :
         {"list", "refused list", "parameters", "refused parameters", "event 4", "write", "refused write",
          "event 3", "opening", "refused read", "read without a packet"}) {
        if (!caller.Effects().contains(effect)) {
            throw std::runtime_error("the random calls never had the effect \"" + std::string(effect) + "\"");
        }
    }
    if (!caller.Effects().contains("packet") && context.environment.HasMicrophone()) {
        context.Warn("no packet was read, although there is a microphone");
    }
}

void MakesRandomCalls(Context &context)
{
    FuzzCaller caller(context);
    for (const TimePoint end = EndOfFuzzing(context); context.environment.Now() < end;) {
        context.Step(fmt::format("makes the calls from number {} of a random sequence", caller.Calls() + 1),
                     {"THR-3"});
        for (uint64_t call = 0; call < callsPerStep; ++call) {
            caller.Step();
        }
    }
    caller.Finish();
    RequireEffects(context, caller);
}

// One unit of a random kind of damage, or a good one.
std::vector<uint8_t> DamagedInSomeWay(const AacUnits &units, Random &random)
{
    const std::vector<uint8_t> &unit = units[random.Below(static_cast<uint32_t>(units.size()))];
    switch (random.Below(6)) {
    case 0:
        return Undecodable(unit);
    case 1:
        return Damaged(WithAdtsHeader(unit), random);
    case 2:
        return unit;
    default:
        return Damaged(unit, random);
    }
}

// Writes one unit to a random speaker. False if the result or the time was not as documented.
bool WriteOne(Context &context, const AacUnits &units, uint64_t number)
{
    const std::vector<uint8_t> unit = DamagedInSomeWay(units, context.random);
    const auto memory = context.environment.Guarded(unit.size());
    std::copy(unit.begin(), unit.end(), memory->Data());
    const std::string_view id = context.random.OneIn(2) ? VELTO_ID_SPEAKER : VELTO_ID_MODEM_SPEAKER;
    const TimePoint begin = context.environment.Now();
    const int32_t result = WriteUnit(context.table, id, {memory->Data(), unit.size()});
    const Seconds time = context.environment.Now() - begin;
    const bool isPrompt = context.Expect(
        time < longestCall, "THR-3", fmt::format("the write of unit {} took {:.1f} s", number, time.count()));
    return context.ExpectEqual(result, int32_t{VELTO_OK}, "SPK-6", "result of the write of unit {}",
                               number) &&
           isPrompt;
}

void WritesDamagedUnits(Context &context)
{
    constexpr size_t leastThreads = 2;
    const AacUnits units = SpeechLikeUnits(94);
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    uint64_t number = 0;
    for (const TimePoint end = EndOfFuzzing(context); context.environment.Now() < end;) {
        context.Step(fmt::format("writes damaged units from number {}", number + 1), {"THR-3"});
        for (uint64_t call = 0; call < callsPerStep; ++call) {
            if (!WriteOne(context, units, ++number)) {
                return;
            }
        }
        // A queue that is never played would hide what damaged sound does to the speakers.
        context.environment.Sleep(50ms);
    }
    context.Measured("units written", double(number), "");
    context.Step("plays good units after the damaged ones", {"SPK-6"});
    SpeakerUse speaker(context.table);
    speaker.Play(1s);
    context.ExpectEqual(speaker.Refused(), 0U, "SPK-6", "refused calls with good units after damaged ones");
    const std::vector<ThreadInfo> threads = NewThreadsOf(CurrentProcess().module, before);
    context.Expect(threads.size() >= leastThreads, "SPK-6",
                   "after damaged units, the module only runs " + Describe(threads));
}

void MakesConcurrentCalls(Context &context)
{
    const AacUnits units = SpeechLikeUnits(94);
    StormFigures figures;
    for (const TimePoint end = EndOfFuzzing(context); context.environment.Now() < end;) {
        StormPlan plan;
        plan.seed = context.random.Next();
        plan.rounds = 4;
        context.Step(fmt::format("a storm of calls with seed {}", plan.seed), {"THR-1"});
        CallStorm storm(context.table, units, plan);
        storm.Finish();
        figures.Add(storm.Figures());
        if (figures.Different() > 0) {
            break;
        }
    }
    for (const auto &[difference, times] : figures.FromDocumentation()) {
        context.Expect(false, "THR-1", fmt::format("{} ({} times)", difference, times));
    }
    context.Measured("packets read", double(figures.Packets()), "");
    for (const auto &[slot, results] : figures.CallsOfSlots()) {
        uint64_t calls = 0;
        for (const auto &[result, times] : results) {
            calls += times;
        }
        context.Measured(slot, double(calls), "calls");
    }
    if (figures.CallsOfSlots().empty()) {
        throw std::runtime_error("the storm made no call");
    }
    if (figures.Packets() == 0 && context.environment.HasMicrophone()) {
        context.Warn("no packet was read, although there is a microphone");
    }
}

} // namespace

std::span<const Check> FuzzChecks()
{
    static const std::vector<Check> checks{
        ProcessCheck("fuzz.calls", MakesRandomCalls),
        ProcessCheck("fuzz.units", WritesDamagedUnits),
        ProcessCheck("fuzz.concurrent-calls", MakesConcurrentCalls),
    };
    return checks;
}

} // namespace velto::check
