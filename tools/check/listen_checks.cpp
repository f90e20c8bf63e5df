#include "check/listen_checks.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <numbers>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "check/loopback_recorder.h"
#include "check/portable/built_in_sound.h"
#include "check/portable/heard_verdict.h"
#include "check/portable/heard_watermark.h"
#include "check/portable/process_check_list.h"
#include "check/portable/speaker_calls.h"
#include "check/portable/watermark.h"
#include "check/process_context.h"
#include "check/sound_player.h"
#include "check/speaker_stream.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr auto endOfSound = 1200ms; // longer than SPK-20 allows for the last unit
// Silence after the sound keeps the stream filled: a recording may lack the end of a stream that runs empty
// (170 ms with Wine 10 and PulseAudio's null sink, which mixes in advance).
constexpr size_t unitsOfQuietEnd = 50;
constexpr uint32_t shortFrames = 100;

using Units = std::span<const std::vector<uint8_t>>;

// What was heard while `play` ran, and a little longer. Skips the check without loopback.
LoopbackRecording RecordWhile(Context &context, const std::function<void()> &play)
{
    try {
        LoopbackRecorder recorder;
        play();
        context.environment.Sleep(endOfSound);
        return recorder.Stop();
    } catch (const LoopbackError &error) {
        context.Skip(error.what());
    }
}

// For checks that start the speakers first: saves their time where nothing can be recorded.
void SkipWithoutLoopback(Context &context)
{
    try {
        LoopbackRecorder().Stop();
    } catch (const LoopbackError &error) {
        context.Skip(error.what());
    }
}

HeardWatermark Examine(const LoopbackRecording &recording, uint32_t frames)
{
    HeardWatermark heard =
        ExamineWatermark(recording.interleaved, recording.rateHz, recording.channels, frames);
    heard.sound.source = "loopback of the default loudspeaker";
    return heard;
}

// A recording of a muted loudspeaker says nothing about the module.
void SkipIfMuted(Context &context, const LoopbackRecording &recording)
{
    if (recording.isMuted) {
        context.Skip("the loudspeaker, or this program, is muted");
    }
}

void ExpectNothing(Context &context, const LoopbackRecording &recording, std::string_view clause,
                   std::string_view what)
{
    const HeardWatermark heard = Examine(recording, framesOfListening);
    if (heard.sound.framesHeard == 0) {
        SkipIfMuted(context, recording);
    }
    context.Expect(heard.sound.framesHeard == 0, clause,
                   fmt::format("{}: {} frames were heard, the first one is number {}", what,
                               heard.sound.framesHeard,
                               heard.sound.framesInOrder.empty() ? 0 : heard.sound.framesInOrder.front()));
}

// ---- The control: the same sound without the module

constexpr auto quietBegin = 1s; // a loudspeaker that wakes up may lack the begin of a stream
constexpr auto quietMargin = 50ms;

// What was recorded, and when its sound began.
struct TimedRecording {
    LoopbackRecording recording;
    uint64_t firstWrite = 0; // by the performance counter, in units of 100 ns
};

constexpr uint64_t In100ns(std::chrono::milliseconds time)
{
    return static_cast<uint64_t>(time / 1ms) * 10'000;
}

std::vector<float> WithQuietEnds(const std::vector<float> &sound)
{
    std::vector<float> padded(size_t{2} * watermarkRateHz * (quietBegin / 1s));
    padded.insert(padded.end(), sound.begin(), sound.end());
    padded.resize(padded.size() + size_t{2} * watermarkFrameSamples * unitsOfQuietEnd);
    return padded;
}

// The part of a recording before the sound, in which only other sounds are heard.
std::span<const float> BeforeSound(const TimedRecording &timed)
{
    const LoopbackRecording &recording = timed.recording;
    const uint64_t end = recording.beganAt + In100ns(quietMargin);
    if (recording.beganAt == 0 || timed.firstWrite < end) {
        return {};
    }
    const uint64_t frames = (timed.firstWrite - end) * recording.rateHz / 10'000'000;
    return std::span(recording.interleaved)
        .first(std::min<size_t>(recording.interleaved.size(), frames * recording.channels));
}

// Plays the sound without the module. None, with a warning, if the recording cannot be compared. Begins no
// step: a crash of the module meanwhile breaks the clauses of the step before.
std::optional<TimedRecording> RecordControl(Context &context, const std::vector<float> &sound)
{
    std::string reason;
    try {
        TimedRecording control;
        LoopbackRecorder recorder;
        control.firstWrite = PlayWithoutModule(WithQuietEnds(sound)) + In100ns(quietBegin);
        context.environment.Sleep(endOfSound);
        control.recording = recorder.Stop();
        if (control.recording.isMuted) {
            reason = "the loudspeaker, or this program, was muted";
        } else if (!IsSilent(BeforeSound(control))) {
            reason = "another sound was heard";
        } else {
            return control;
        }
    } catch (const LoopbackError &error) {
        reason = error.what();
    } catch (const SoundPlayerError &error) {
        reason = error.what();
    }
    context.Warn("the same sound without the module could not be compared: " + reason);
    return std::nullopt;
}

// Reports the verdict. With an excuse alone, skips the check: no clause of it counts as passed then.
void Report(Context &context, const HeardVerdict &verdict)
{
    for (const BrokenClause &broken : verdict.broken) {
        context.Expect(false, broken.clause, broken.text);
    }
    for (const std::string &warning : verdict.warnings) {
        context.Warn(warning);
    }
    if (verdict.excuse.empty()) {
        return;
    }
    if (verdict.broken.empty()) {
        context.Skip(verdict.excuse);
    }
    context.Warn(verdict.excuse);
}

// ---- listen.watermark

// The stream of a correct host. Returns when its first unit with sound was written.
uint64_t PlayWatermark(SpeakerStream &speaker, const AacUnits &units)
{
    speaker.SetRate(VELTO_SAMPLE_RATE_HZ);
    // The first unit is priming.
    constexpr uint64_t unitTime100ns = 10'000'000ULL * VELTO_UNIT_SAMPLES / VELTO_SAMPLE_RATE_HZ;
    const uint64_t firstSound = PerformanceTime() + unitTime100ns;
    speaker.WriteAtPace(units);
    speaker.WriteSilenceAtPace(unitsOfQuietEnd);
    return firstSound;
}

HeardConditions ConditionsOf(const TimedRecording &timed)
{
    HeardConditions conditions;
    conditions.levelsDb = timed.recording.levelsDb;
    if (timed.recording.beganAt != 0) {
        conditions.firstWriteMs =
            (static_cast<double>(timed.firstWrite) - static_cast<double>(timed.recording.beganAt)) / 10'000;
    }
    return conditions;
}

// Reports the sound with its delay since the write, if this is known.
void ReportSound(Context &context, HeardSound sound, const HeardConditions &conditions)
{
    if (sound.framesHeard > 0) {
        if (conditions.firstWriteMs) {
            sound.delayMs -= *conditions.firstWriteMs;
            context.Measured("delay from write to loudspeaker", sound.delayMs, "ms");
        }
        context.Measured("level of the sound", sound.levelDb, "dB");
    }
    if (CurrentProcess().heard != nullptr) {
        *CurrentProcess().heard = std::move(sound);
    }
}

void ExamineListening(Context &context, const TimedRecording &timed)
{
    const HeardWatermark heard = Examine(timed.recording, framesOfListening);
    if (heard.sound.framesHeard == 0) {
        SkipIfMuted(context, timed.recording);
    }
    const HeardConditions conditions = ConditionsOf(timed);
    ReportSound(context, heard.sound, conditions);
    HeardVerdict verdict = VerdictOn(heard, conditions);
    if (!verdict.broken.empty()) {
        if (const auto control = RecordControl(context, WatermarkSound(framesOfListening))) {
            verdict = CompareWithControl(heard, conditions, Examine(control->recording, framesOfListening),
                                         ConditionsOf(*control));
        }
    }
    Report(context, verdict);
}

// Plays without a recorder, too.
void CheckWatermark(Context &context)
{
    context.Step("starts the speakers", {"SPK-16"});
    SpeakerStream speaker(context, VELTO_ID_SPEAKER);
    speaker.WarmUp();

    std::optional<LoopbackRecorder> recorder;
    std::string reason;
    try {
        recorder.emplace();
    } catch (const LoopbackError &error) {
        reason = error.what();
    }
    context.Step("plays six seconds of the watermark", {"SPK-16"});
    const uint64_t firstWrite = PlayWatermark(speaker, EncodeStereo(WatermarkSound(framesOfListening)));
    context.environment.Sleep(endOfSound);
    speaker.WarnAboutRefusals();
    if (!recorder) {
        context.Skip(reason + "; the sound was played");
    }
    TimedRecording timed{{}, firstWrite};
    try {
        timed.recording = recorder->Stop();
    } catch (const LoopbackError &error) {
        context.Skip(error.what());
    }
    ExamineListening(context, timed);
}

// ---- listen.both-speakers

// Between the watermark's steady tones and its glides, which it does not disturb.
constexpr double toneHz = 18 * watermarkStepHz;
constexpr float toneAmplitude = 0.06F;
constexpr double leastTone = 0.3; // of its amplitude

std::vector<float> ToneSound(uint32_t frames)
{
    std::vector<float> sound;
    for (size_t i = 0; i < size_t{frames} * watermarkFrameSamples; ++i) {
        const double phase = 2 * std::numbers::pi * toneHz * static_cast<double>(i) / watermarkRateHz;
        sound.insert(sound.end(), 2, toneAmplitude * static_cast<float>(std::cos(phase)));
    }
    return sound;
}

// The tone's amplitude in the frame that begins at `begin`, in samples of the first channel.
double ToneAt(const LoopbackRecording &recording, size_t begin, size_t length)
{
    double real = 0;
    double imaginary = 0;
    for (size_t i = 0; i < length; ++i) {
        const double phase = 2 * std::numbers::pi * toneHz * static_cast<double>(i) / recording.rateHz;
        const double sample = recording.interleaved[(begin + i) * recording.channels];
        real += sample * std::cos(phase);
        imaginary += sample * std::sin(phase);
    }
    return 2 * std::hypot(real, imaginary) / static_cast<double>(length);
}

// How many pieces as long as a frame contain the tone, which has `factor` of the amplitude that was sent.
uint32_t FramesWithTone(const LoopbackRecording &recording, double factor)
{
    const size_t length = size_t{recording.rateHz} * watermarkFrameSamples / watermarkRateHz;
    uint32_t frames = 0;
    for (size_t begin = 0; (begin + length) * recording.channels <= recording.interleaved.size();
         begin += length) {
        if (ToneAt(recording, begin, length) >= leastTone * factor * toneAmplitude) {
            ++frames;
        }
    }
    return frames;
}

HeardPair ExaminePair(const LoopbackRecording &recording)
{
    HeardPair heard{Examine(recording, shortFrames), 0};
    const HeardSound &sound = heard.watermark.sound;
    heard.framesWithTone =
        FramesWithTone(recording, sound.framesHeard > 0 ? std::pow(10, sound.levelDb / 20) : 1);
    return heard;
}

// Both sounds, as the module mixes them.
std::vector<float> PairSound()
{
    std::vector<float> sound = WatermarkSound(shortFrames);
    std::ranges::transform(sound, ToneSound(shortFrames), sound.begin(), std::plus());
    return sound;
}

// The watermark on the call speaker, a tone on the media speaker: each must be heard as if it were alone.
void CheckBothSpeakers(Context &context)
{
    SkipWithoutLoopback(context);
    context.Step("starts the speakers", {"SPK-21"});
    SpeakerStream media(context, VELTO_ID_SPEAKER);
    SpeakerStream call(context, VELTO_ID_MODEM_SPEAKER);
    media.WarmUp();
    const AacUnits tone = EncodeStereo(ToneSound(shortFrames));
    const AacUnits watermark = EncodeStereo(WatermarkSound(shortFrames));
    context.Step("plays on both speakers at the same time", {"SPK-21"});
    const LoopbackRecording recording = RecordWhile(context, [&] {
        media.SetRate(VELTO_SAMPLE_RATE_HZ);
        call.SetRate(VELTO_SAMPLE_RATE_HZ);
        WriteAtPace(context.environment, std::min(tone.size(), watermark.size()), [&](size_t i) {
            media.Write(tone[i]);
            call.Write(watermark[i]);
        });
        call.WriteSilenceAtPace(unitsOfQuietEnd);
    });
    const HeardPair heard = ExaminePair(recording);
    if (heard.watermark.sound.framesHeard == 0) {
        SkipIfMuted(context, recording);
    }
    HeardVerdict verdict = VerdictOn(heard);
    if (!verdict.broken.empty()) {
        if (const auto control = RecordControl(context, PairSound())) {
            verdict = CompareWithControl(heard, ExaminePair(control->recording));
        }
    }
    Report(context, verdict);
}

// ---- listen.four-units-are-not-heard

// The first unit is the encoder's priming: the five units of the cushion contain four frames.
void ExpectHeldBackFrames(Context &context, const LoopbackRecording &recording)
{
    const HeardSound heard = Examine(recording, framesOfListening).sound;
    if (heard.framesHeard == 0) {
        SkipIfMuted(context, recording);
    }
    std::vector<uint32_t> first = heard.framesInOrder;
    first.resize(std::min<size_t>(first.size(), VELTO_CUSHION_UNITS - 1));
    context.Expect(
        first == std::vector<uint32_t>{0, 1, 2, 3}, "SPK-4",
        fmt::format("after the fifth unit, the first frames that were heard are {} instead of 0 to 3",
                    fmt::join(first, ", ")));
}

void CheckFourUnits(Context &context)
{
    constexpr size_t four = VELTO_CUSHION_UNITS - 1;
    SpeakerStream speaker(context, VELTO_ID_SPEAKER);
    const AacUnits units = EncodeStereo(WatermarkSound(shortFrames));
    context.Step("writes four units after loading", {"SPK-4"});
    const LoopbackRecording held = RecordWhile(context, [&] {
        speaker.WriteAtPace(Units(units).first(four));
        context.environment.Sleep(2s); // the speakers start meanwhile
    });
    ExpectNothing(context, held, "SPK-4", "a stream of four units");

    context.Step("writes more units", {"SPK-4"});
    ExpectHeldBackFrames(context, RecordWhile(context, [&] {
                             speaker.WriteAtPace(Units(units).subspan(four, size_t{2} * VELTO_QUEUE_UNITS));
                             speaker.WriteSilenceAtPace(unitsOfQuietEnd);
                         }));

    context.Step("writes four units after SetAudioParameter", {"PAR-6"});
    speaker.SetRate(VELTO_SAMPLE_RATE_HZ);
    const LoopbackRecording heldAgain =
        RecordWhile(context, [&] { speaker.WriteAtPace(Units(units).last(four)); });
    ExpectNothing(context, heldAgain, "PAR-6", "four units after SetAudioParameter");
    speaker.WarnAboutRefusals();
}

// ---- listen.full-queue-drops-oldest

// 20 in the queue, 15 in the endpoint's buffer, and those that are played while the burst is written.
constexpr uint32_t mostOfBurst = 60;
constexpr auto timeOfBurst = std::chrono::ceil<std::chrono::milliseconds>(mostOfBurst * unitTime);
// After this time, the queue has room again, and the endpoint's buffer is still full.
constexpr auto timeOfHalfQueue =
    std::chrono::ceil<std::chrono::milliseconds>(VELTO_QUEUE_UNITS / 2 * unitTime);

// All units at once: the newest 20 wait, the endpoint's buffer took a few of the oldest, the others are lost.
void CheckFullQueue(Context &context)
{
    SkipWithoutLoopback(context);
    context.Step("starts the speakers", {"SPK-5"});
    SpeakerStream speaker(context, VELTO_ID_SPEAKER);
    speaker.WarmUp();
    const AacUnits units = EncodeStereo(WatermarkSound(framesOfListening));
    context.Step("writes all units at once", {"SPK-5"});
    const LoopbackRecording recording = RecordWhile(context, [&] {
        speaker.SetRate(VELTO_SAMPLE_RATE_HZ);
        for (const auto &unit : units) {
            speaker.Write(unit);
        }
        context.environment.Sleep(timeOfHalfQueue);
        speaker.WriteSilenceAtPace(unitsOfQuietEnd);
        context.environment.Sleep(timeOfBurst);
    });
    const HeardSound heard = Examine(recording, framesOfListening).sound;
    if (heard.framesHeard == 0) {
        SkipIfMuted(context, recording);
    }
    context.Expect(heard.framesHeard <= mostOfBurst, "SPK-5",
                   fmt::format("{} of {} units that were written at once were heard", heard.framesHeard,
                               framesOfListening));
    std::vector<uint32_t> missing;
    for (uint32_t frame = framesOfListening - VELTO_QUEUE_UNITS + 1; frame < framesOfListening; ++frame) {
        if (std::ranges::find(heard.framesInOrder, frame) == heard.framesInOrder.end()) {
            missing.push_back(frame);
        }
    }
    context.Expect(missing.empty(), "SPK-5",
                   fmt::format("of the last {} units, frames {} were not heard", VELTO_QUEUE_UNITS,
                               fmt::join(missing, ", ")));
    speaker.WarnAboutRefusals();
}

// ---- listen.rate-of-zero-mutes

void CheckRateOfZero(Context &context)
{
    SpeakerStream call(context, VELTO_ID_MODEM_SPEAKER);
    SpeakerStream media(context, VELTO_ID_SPEAKER);
    const AacUnits units = EncodeStereo(WatermarkSound(shortFrames));
    context.Step("plays after a sample rate of 0", {"PAR-5"});
    call.SetRate(0);
    ExpectNothing(context, RecordWhile(context, [&] { call.WriteAtPace(units); }), "PAR-5",
                  "the speaker whose sample rate is 0");
    ExpectNothing(context, RecordWhile(context, [&] { media.WriteAtPace(units); }), "PAR-4",
                  "the other speaker after a sample rate of 0");

    context.Step("plays after a sample rate of 48000", {"PAR-4"});
    call.SetRate(VELTO_SAMPLE_RATE_HZ);
    ExpectNothing(context, RecordWhile(context, [&] { call.WriteAtPace(units); }), "PAR-4",
                  "a started speaker after a sample rate of 48000");
}

// ---- listen.missing-rate-is-default

// The speakers start with the parameters of the last accepted list, which lacks the sample rate.
void CheckMissingRate(Context &context)
{
    SkipWithoutLoopback(context);
    SpeakerStream speaker(context, VELTO_ID_SPEAKER);
    const AacUnits units = EncodeStereo(WatermarkSound(shortFrames));
    context.Step("plays after a list without a sample rate", {"PAR-2"});
    speaker.SetRate(0);
    speaker.SetChannels(VELTO_CHANNEL_STEREO);
    const LoopbackRecording recording = RecordWhile(context, [&] { speaker.WriteAtPace(units); });
    const HeardSound heard = Examine(recording, framesOfListening).sound;
    if (heard.framesHeard == 0) {
        SkipIfMuted(context, recording);
    }
    context.Expect(heard.framesHeard > 0, "PAR-2",
                   "a sample rate of 0 was used, although a later list without a sample rate was accepted");
    speaker.WarnAboutRefusals();
}

// ---- listen.other-ids-are-not-heard

void CheckOtherIds(Context &context)
{
    SkipWithoutLoopback(context);
    context.Step("starts the speakers", {"SPK-22"});
    SpeakerStream(context, VELTO_ID_SPEAKER).WarmUp();
    const AacUnits units = EncodeStereo(WatermarkSound(shortFrames));
    const auto play = [&](std::span<const std::string> ids) {
        return RecordWhile(context, [&] {
            for (const std::string &id : ids) {
                SpeakerStream(context, id).WriteAtPace(Units(units).first(size_t{2} * VELTO_CUSHION_UNITS));
            }
        });
    };
    context.Step("writes units for ids that resemble a speaker's", {"IDS-2"});
    const std::array<std::string, 5> similar{"Speaker1", "speaker", "speaker10", "modemSpeaker1",
                                             "ModemSpeaker"};
    ExpectNothing(context, play(similar), "IDS-2", "ids that resemble a speaker's");
    context.Step("writes units for other ids", {"SPK-22"});
    const std::array<std::string, 4> others{VELTO_ID_MIC, VELTO_ID_MODEM_MIC, "", "another"};
    ExpectNothing(context, play(others), "SPK-22", "ids that name no speaker");
}

} // namespace

std::span<const Check> ListenChecks()
{
    static const std::array<Check, 7> checks{
        ProcessCheck("listen.watermark", CheckWatermark),
        ProcessCheck("listen.both-speakers", CheckBothSpeakers),
        ProcessCheck("listen.four-units-are-not-heard", CheckFourUnits),
        ProcessCheck("listen.full-queue-drops-oldest", CheckFullQueue),
        ProcessCheck("listen.rate-of-zero-mutes", CheckRateOfZero),
        ProcessCheck("listen.missing-rate-is-default", CheckMissingRate),
        ProcessCheck("listen.other-ids-are-not-heard", CheckOtherIds),
    };
    return checks;
}

} // namespace velto::check
