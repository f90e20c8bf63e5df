// The speakers, with sound that is built in: results of all calls of a correct host and of a careless one,
// and whether a call waits for the loudspeaker. What is heard needs a recording: see listen_checks.h.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "check/portable/built_in_sound.h"
#include "check/portable/call_times.h"
#include "check/portable/check.h"
#include "check/portable/speaker_calls.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr int32_t ok = VELTO_OK; // with the type of a result

using Unit = std::span<const uint8_t>;

constexpr std::array<uint8_t, 6> silentUnit VELTO_SILENT_UNIT;
constexpr size_t unitsOfStream = 70; // one and a half seconds

// One speaker of the module. One thread for each object.
class Speaker {
public:
    Speaker(Context &context, std::string id) : m_context(context), m_id(std::move(id)) {}

    int32_t Write(Unit unit) { return WriteUnit(m_context.table, m_id, unit); }
    int32_t SetRate(uint32_t rateHz)
    {
        return SetParameter(m_context.table, m_id, VELTO_KEY_SAMPLE_RATE, rateHz);
    }
    int32_t Close() { return CloseTrack(m_context.table, m_id); }

    // The same calls; a result other than 0 breaks `clause`.
    void ExpectWrites(Unit unit, std::string_view clause, std::string_view what)
    {
        m_context.ExpectEqual(Write(unit), ok, clause, "a write of {} for \"{}\" returned", what, m_id);
    }
    void ExpectSetsRate(uint32_t rateHz)
    {
        m_context.ExpectEqual(SetRate(rateHz), ok, "PAR-8",
                              "SetAudioParameter with a rate of {} for \"{}\" returned", rateHz, m_id);
    }
    void ExpectCloses()
    {
        m_context.ExpectEqual(Close(), ok, "SPK-10", "CloseAudioTrack for \"{}\" returned", m_id);
    }

private:
    Context &m_context;
    const std::string m_id;
};

// Calls `write` for each unit when it is due.
void SendAtPace(Environment &environment, const AacUnits &units, const std::function<void(Unit)> &write)
{
    WriteAtPace(environment, units.size(), [&](size_t i) { write(units[i]); });
}

// The stream of a correct host, from its parameters to the silence at its end.
void PlayStream(Context &context, const std::string &id, const AacUnits &units, std::string_view what)
{
    Speaker speaker(context, id);
    speaker.ExpectSetsRate(VELTO_SAMPLE_RATE_HZ);
    SendAtPace(context.environment, units, [&](Unit unit) { speaker.ExpectWrites(unit, "SPK-3", what); });
    speaker.ExpectCloses();
    const AacUnits silence(VELTO_CUSHION_UNITS, {silentUnit.begin(), silentUnit.end()});
    SendAtPace(context.environment, silence,
               [&](Unit unit) { speaker.ExpectWrites(unit, "SPK-3", "a silent unit"); });
}

AacUnits WithAdtsHeaders(const AacUnits &units)
{
    AacUnits framed;
    for (const std::vector<uint8_t> &unit : units) {
        framed.push_back(WithAdtsHeader(unit));
    }
    return framed;
}

void CheckRawUnits(Context &context)
{
    context.Step("plays raw units on each speaker", {"THR-3"});
    const AacUnits units = SpeechLikeUnits(unitsOfStream);
    PlayStream(context, VELTO_ID_SPEAKER, units, "a raw unit");
    PlayStream(context, VELTO_ID_MODEM_SPEAKER, units, "a raw unit");
}

void CheckAdtsUnits(Context &context)
{
    context.Step("plays units with ADTS headers on each speaker", {"THR-3"});
    const AacUnits units = WithAdtsHeaders(SpeechLikeUnits(unitsOfStream));
    PlayStream(context, VELTO_ID_SPEAKER, units, "a unit with its ADTS header");
    PlayStream(context, VELTO_ID_MODEM_SPEAKER, units, "a unit with its ADTS header");
}

// Both speakers in turn, as one thread of a host writes them.
void CheckBothSpeakers(Context &context)
{
    context.Step("plays on both speakers at the same time", {"THR-3"});
    Speaker media(context, VELTO_ID_SPEAKER);
    Speaker call(context, VELTO_ID_MODEM_SPEAKER);
    media.ExpectSetsRate(VELTO_SAMPLE_RATE_HZ);
    call.ExpectSetsRate(VELTO_SAMPLE_RATE_HZ);
    SendAtPace(context.environment, SpeechLikeUnits(unitsOfStream), [&](Unit unit) {
        media.ExpectWrites(unit, "SPK-3", "a unit for both speakers");
        call.ExpectWrites(unit, "SPK-3", "a unit for both speakers");
    });
    media.ExpectCloses();
    call.ExpectCloses();
}

// Each unit ends directly before an inaccessible page.
void CheckUnitsAtEndOfPage(Context &context)
{
    Speaker speaker(context, VELTO_ID_SPEAKER);
    const AacUnits raw = SpeechLikeUnits(20);
    for (const AacUnits &units : {raw, WithAdtsHeaders(raw)}) {
        context.Step("writes units without padding behind them", {"OWN-6"});
        for (const std::vector<uint8_t> &unit : units) {
            const auto memory = context.environment.Guarded(unit.size());
            std::copy(unit.begin(), unit.end(), memory->Data());
            speaker.ExpectWrites({memory->Data(), unit.size()}, "SPK-3", "a unit without padding");
        }
    }
}

// Every second unit is bad.
void CheckBadUnits(Context &context)
{
    Speaker speaker(context, VELTO_ID_SPEAKER);
    const auto writeBetweenGoodOnes = [&](std::string_view what,
                                          const std::function<std::vector<uint8_t>(Unit)> &change) {
        context.Step(fmt::format("writes {}, each before a good one", what), {"THR-3"});
        for (const std::vector<uint8_t> &unit : SpeechLikeUnits(40)) {
            speaker.ExpectWrites(change(unit), "SPK-6", what);
            speaker.ExpectWrites(unit, "SPK-6", "a good unit after a bad one");
        }
    };
    speaker.ExpectWrites(silentUnit, "SPK-3", "a silent unit");
    writeBetweenGoodOnes("undecodable units", Undecodable);
    writeBetweenGoodOnes("damaged units", [&](Unit unit) { return Damaged(unit, context.random); });
    writeBetweenGoodOnes("random bytes", [&](Unit unit) {
        std::vector<uint8_t> bytes(unit.size());
        std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(context.random.Next()); });
        return bytes;
    });
    writeBetweenGoodOnes("units with the header of another format", [](Unit unit) {
        std::vector<uint8_t> bytes = WithAdtsHeader(unit);
        bytes[2] = static_cast<uint8_t>(bytes[2] ^ 0x3C); // another sample rate
        return bytes;
    });
    writeBetweenGoodOnes("units of a byte", [](Unit unit) { return std::vector<uint8_t>{unit[0]}; });
    context.Step("writes units of 0 bytes, each before a good one", {"THR-3"});
    for (const std::vector<uint8_t> &unit : SpeechLikeUnits(10)) {
        speaker.ExpectWrites(Unit(unit).first(0), "SPK-6", "a unit of 0 bytes");
        speaker.ExpectWrites(unit, "SPK-6", "a good unit after a bad one");
    }
}

void CheckOtherIds(Context &context)
{
    context.Step("writes units for ids that name no speaker", {"THR-3"});
    const AacUnits units = SpeechLikeUnits(10);
    for (const char *const id : {VELTO_ID_MIC, VELTO_ID_MODEM_MIC, "", "speaker", "speaker2", "speaker11",
                                 "Speaker1", "modemspeaker1", "ModemSpeaker", "loudspeaker in the kitchen"}) {
        Speaker other(context, id);
        for (const std::vector<uint8_t> &unit : units) {
            other.ExpectWrites(unit, "IDS-3", "a unit");
        }
    }
    Speaker speaker(context, VELTO_ID_SPEAKER);
    for (const std::vector<uint8_t> &unit : units) {
        speaker.ExpectWrites(unit, "SPK-3", "a unit after those for other ids");
    }
}

void CheckParametersOfZero(Context &context)
{
    context.Step("writes after parameters that mute", {"THR-3"});
    Speaker speaker(context, VELTO_ID_SPEAKER);
    const AacUnits units = SpeechLikeUnits(30);
    for (const uint32_t rateHz : {0U, UINT32_MAX, 0x80000000U, uint32_t{VELTO_SAMPLE_RATE_HZ}}) {
        speaker.ExpectSetsRate(rateHz);
        for (const std::vector<uint8_t> &unit : units) {
            speaker.ExpectWrites(unit, "PAR-5", "a unit after an unusable rate");
        }
    }
}

void CheckWritesAfterClose(Context &context)
{
    context.Step("writes after the track was closed", {"THR-3"});
    Speaker speaker(context, VELTO_ID_SPEAKER);
    const AacUnits units = SpeechLikeUnits(20);
    for (int closes = 0; closes < 3; ++closes) {
        SendAtPace(context.environment, units,
                   [&](Unit unit) { speaker.ExpectWrites(unit, "SPK-10", "a unit after a close"); });
        speaker.ExpectCloses();
        speaker.ExpectCloses();
    }
}

void CheckMissingLoudspeaker(Context &context)
{
    if (context.environment.HasLoudspeaker()) {
        context.Skip("this system has a loudspeaker");
    }
    context.Step("writes without a loudspeaker", {"SPK-7"});
    Speaker speaker(context, VELTO_ID_SPEAKER);
    SendAtPace(context.environment, SpeechLikeUnits(unitsOfStream),
               [&](Unit unit) { speaker.ExpectWrites(unit, "SPK-7", "a unit without a loudspeaker"); });
    // Without a loudspeaker, too, more units come than can wait for it.
    for (const std::vector<uint8_t> &unit : SpeechLikeUnits(unitsOfStream)) {
        speaker.ExpectWrites(unit, "SPK-7", "a unit without a loudspeaker");
    }
}

// One thread for each speaker. A write that meets the start of another one may lose its unit; its result
// stays 0.
void CheckTwoWriters(Context &context)
{
    context.Step("writes to each speaker from another thread", {"THR-1"});
    const AacUnits units = SpeechLikeUnits(unitsOfStream);
    const auto play = [&](const std::string &id) {
        Speaker speaker(context, id);
        SendAtPace(context.environment, units, [&](Unit unit) {
            speaker.ExpectWrites(unit, "THR-1", "a unit while another thread writes");
        });
    };
    std::thread call(play, VELTO_ID_MODEM_SPEAKER);
    play(VELTO_ID_SPEAKER);
    call.join();
}

// All other slots of the speakers on another thread, while one thread writes.
void CheckOverlappingCalls(Context &context)
{
    context.Step("makes other calls on another thread during a stream", {"THR-1"});
    std::atomic<bool> isOver{false};
    std::thread others([&] {
        Speaker speaker(context, VELTO_ID_SPEAKER);
        Speaker call(context, VELTO_ID_MODEM_SPEAKER);
        constexpr int mostRounds = 1000;
        for (int round = 0; round < mostRounds && !isOver; ++round) {
            context.ExpectEqual(speaker.SetRate(VELTO_SAMPLE_RATE_HZ), ok, "THR-1",
                                "SetAudioParameter during a write returned");
            context.ExpectEqual(call.Close(), ok, "THR-1", "CloseAudioTrack during a write returned");
            AudioCapabilityItem *items = nullptr;
            uint32_t count = 0;
            const int32_t result = context.table.GetAudioCapability(&items, &count);
            if (context.ExpectEqual(result, ok, "THR-1", "GetAudioCapability during a write returned")) {
                context.table.Release(VELTO_RELEASE_CAPABILITIES, items, count);
            }
            context.ExpectEqual(context.table.NoOperation1(), ok, "THR-1",
                                "NoOperation1 during a write returned");
            context.environment.Sleep(2ms);
        }
    });
    Speaker speaker(context, VELTO_ID_SPEAKER);
    SendAtPace(context.environment, SpeechLikeUnits(unitsOfStream),
               [&](Unit unit) { speaker.ExpectWrites(unit, "THR-1", "a unit during other calls"); });
    isOver = true;
    others.join();
}

// Makes each call that a host makes while it plays, without waiting between the calls.
void MakeAllCalls(Context &context, const AacUnits &units, CallTimes &times)
{
    Speaker speaker(context, VELTO_ID_SPEAKER);
    const AudioHandlerTable &table = context.table;
    for (const std::vector<uint8_t> &unit : units) {
        times.Of("WriteStreamBuffer", [&] { return speaker.Write(unit); });
        times.Of("SetAudioParameter", [&] { return speaker.SetRate(VELTO_SAMPLE_RATE_HZ); });
        times.Of("CloseAudioTrack", [&] { return speaker.Close(); });
        AudioCapabilityItem *items = nullptr;
        uint32_t count = 0;
        if (times.Of("GetAudioCapability", [&] { return table.GetAudioCapability(&items, &count); }) ==
            VELTO_OK) {
            times.Of("Release", [&] { table.Release(VELTO_RELEASE_CAPABILITIES, items, count); });
        }
        const AudioListener none{nullptr, nullptr};
        times.Of("RegisterListener", [&] { return table.RegisterListener(&none); });
        times.Of("NoOperation1", [&] { return table.NoOperation1(); });
        times.Of("NoOperation10", [&] { return table.NoOperation10(); });
    }
}

// A module that waits for the loudspeaker takes the playing time of a unit for a write, or much longer for
// another call. The median ignores the stalls of a busy machine.
void CheckNoCallWaits(Context &context)
{
    constexpr std::chrono::duration<double, std::milli> mostForWrite = unitTime / 2;
    constexpr std::chrono::duration<double, std::milli> mostForOthers = 100ms;
    const AacUnits units = SpeechLikeUnits(100);
    Speaker speaker(context, VELTO_ID_SPEAKER);

    context.Step("makes all calls of the speakers without a pause", {"THR-4"});
    CallTimes starting(context.environment);
    starting.Of("WriteStreamBuffer", [&] { return speaker.Write(silentUnit); });
    context.Measured("WriteStreamBuffer that starts the speakers",
                     starting.Percentile("WriteStreamBuffer", 100)->count(), "µs");
    CallTimes burst(context.environment);
    for (const std::vector<uint8_t> &unit : units) {
        burst.Of("WriteStreamBuffer", [&] { return speaker.Write(unit); });
    }
    CallTimes mixed(context.environment);
    MakeAllCalls(context, units, mixed);

    const std::chrono::duration<double, std::milli> write = *burst.Percentile("WriteStreamBuffer", 50);
    context.Expect(write <= mostForWrite, "THR-4",
                   fmt::format("half of {} writes without a pause took more than {:.1f} ms", units.size(),
                               write.count()));
    for (const std::string_view slot : {"SetAudioParameter", "CloseAudioTrack", "GetAudioCapability",
                                        "Release", "RegisterListener", "NoOperation1", "NoOperation10"}) {
        if (const auto time = mixed.Percentile(slot, 50)) {
            context.Expect(*time <= mostForOthers, "THR-4",
                           fmt::format("half of {} calls of {} took more than {:.1f} ms", units.size(), slot,
                                       time->count() / 1000));
        }
    }
    CallTimes paced(context.environment);
    SendAtPace(context.environment, units, [&](Unit unit) {
        MakeAllCalls(context, {{unit.begin(), unit.end()}}, paced);
    });
    paced.Report(context);
}

} // namespace

std::span<const Check> SpeakerChecks()
{
    static const std::vector<Check> checks{
        {"speaker.raw-units", 5, {"SPK-3", "SPK-10", "PAR-8", "THR-3"}, 60s, CheckRawUnits},
        {"speaker.adts-units", 5, {"SPK-3", "SPK-10", "PAR-8", "THR-3"}, 60s, CheckAdtsUnits},
        {"speaker.both", 5, {"SPK-3", "SPK-10", "PAR-8", "THR-3"}, 60s, CheckBothSpeakers},
        {"speaker.units-at-end-of-page", 5, {"OWN-6", "SPK-3"}, 60s, CheckUnitsAtEndOfPage},
        {"speaker.bad-units", 5, {"SPK-3", "SPK-6", "THR-3"}, 60s, CheckBadUnits},
        {"speaker.other-ids", 5, {"IDS-3", "SPK-3", "THR-3"}, 60s, CheckOtherIds},
        {"speaker.parameters-of-zero", 5, {"PAR-5", "PAR-8", "THR-3"}, 60s, CheckParametersOfZero},
        {"speaker.writes-after-close", 5, {"SPK-10", "THR-3"}, 60s, CheckWritesAfterClose},
        {"speaker.without-loudspeaker", 5, {"SPK-7"}, 60s, CheckMissingLoudspeaker},
        {"speaker.two-writers", 5, {"THR-1"}, 60s, CheckTwoWriters},
        {"speaker.overlapping-calls", 5, {"THR-1"}, 60s, CheckOverlappingCalls},
        {"speaker.no-call-waits", 5, {"THR-4"}, 60s, CheckNoCallWaits},
    };
    return checks;
}

} // namespace velto::check
