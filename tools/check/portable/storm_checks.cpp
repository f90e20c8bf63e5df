// Storms: all slots at random, from eleven threads at the same time. No correct host calls so, yet each
// result is documented.
#include <atomic>
#include <chrono>

#include "check/portable/built_in_sound.h"
#include "check/portable/call_storm.h"
#include "check/portable/check.h"
#include "check/portable/speaker_calls.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr int32_t ok = VELTO_OK; // with the type of a result

constexpr double pace = 0.5; // of real devices: more calls meet each other

StormTime TimeOf(Environment &environment)
{
    return {.sleep =
                [&environment](std::chrono::microseconds time) {
                    environment.Sleep(std::chrono::ceil<std::chrono::milliseconds>(time));
                },
            .now = [&environment] { return environment.Now(); }};
}

void ReportCalls(Context &context, const StormFigures &figures)
{
    uint64_t calls = 0;
    for (const auto &[slot, results] : figures.CallsOfSlots()) {
        for (const auto &[result, times] : results) {
            calls += times;
        }
    }
    context.Measured("calls of the storm", static_cast<double>(calls), "calls");
    context.Measured("packets read in the storm", static_cast<double>(figures.Packets()), "packets");
    for (const auto &[difference, times] : figures.FromDocumentation()) {
        context.Expect(false, "THR-1",
                       fmt::format("{} {} time(s) while other threads made calls, which is not documented",
                                   difference, times));
    }
}

// A correct stream and a recording, after the storm.
void CheckCallsAfterStorm(Context &context, const AacUnits &units)
{
    const AudioHandlerTable &table = context.table;
    const AudioProfileList none{};
    context.Step("makes the calls of a correct host after the storm", {"THR-1"});
    const int32_t opened =
        table.OpenAudioRecord(VELTO_ID_MIC, sizeof(VELTO_ID_MIC) - 1, nullptr, nullptr, &none);
    context.ExpectEqual(opened, ok, "THR-1", "OpenAudioRecord after the storm returned");
    for (const std::vector<uint8_t> &unit : units) {
        context.ExpectEqual(WriteUnit(table, VELTO_ID_SPEAKER, unit), ok, "THR-1",
                            "WriteStreamBuffer after the storm returned");
    }
    const int32_t closed = table.CloseAudioRecord(VELTO_ID_MIC, sizeof(VELTO_ID_MIC) - 1);
    context.ExpectEqual(closed, ok, "THR-1", "CloseAudioRecord after the storm returned");
}

// A call whose result is wrong on one thread, too, says nothing about overlapping calls.
void SkipIfWrongOnOneThread(Context &context, const AacUnits &units, const StormTime &time)
{
    context.Step("calls all slots on one thread", {"THR-1"});
    const std::atomic<bool> stopped{false};
    StormCaller caller(context.table, units, pace / 10, time, stopped, context.random.Next());
    for (int calls = 0; calls < 40; ++calls) {
        caller.SetParameters();
        caller.CloseTrack();
        caller.QueryCapabilities();
        caller.ChangeListener();
        caller.Read();
    }
    caller.Write(VELTO_ID_SPEAKER);
    caller.Write(VELTO_ID_MODEM_SPEAKER);
    caller.Record();
    caller.Record();
    if (caller.Figures().Different() > 0) {
        context.Skip("calls on one thread do not return documented results");
    }
}

// About ten seconds. The first writes of several threads meet each other while the speakers are started.
void CheckStorm(Context &context)
{
    const AacUnits units = SpeechLikeUnits(60);
    const StormTime time = TimeOf(context.environment);
    SkipIfWrongOnOneThread(context, units, time);
    context.Step("calls all slots at random from eleven threads", {"THR-1"});
    CallStorm storm(context.table, units,
                    {.seed = context.random.Next(), .pace = pace, .rounds = 6, .time = time});
    storm.Finish();
    ReportCalls(context, storm.Figures());
    CheckCallsAfterStorm(context, units);
}

} // namespace

std::span<const Check> StormChecks()
{
    static const std::vector<Check> checks{
        {"storm.all-slots", 8, {"THR-1"}, 120s, CheckStorm},
    };
    return checks;
}

} // namespace velto::check
