#include "check/portable/heard_verdict.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include <fmt/format.h>

namespace velto::check {
namespace {

constexpr float audiblePeak = 0.001F;      // -60 dB: below it, a recording is called silent
constexpr double mostSpeedError = 0.001;   // clocks of sound cards differ by a tenth of it
constexpr double mostLevelErrorDb = 1.0;   // the AAC encoder loses 0.1 dB
constexpr double longestDelayMs = 727;     // of SPK-20
constexpr double usualDelayMs = 300;       // of SPK-20
constexpr double soundSystemDelayMs = 100; // of Windows' mixer and driver, generously
constexpr size_t mostGapsNamed = 5;
constexpr size_t mostFramesWithoutTone = 8; // at its begin and end, which the recording cuts somewhere

// The clauses of one recording as they are collected.
class Examination {
public:
    Examination(const HeardWatermark &heard, const HeardConditions &conditions)
        : m_sound(heard.sound), m_channels(heard.channels), m_conditions(conditions)
    {
    }

    HeardVerdict Take()
    {
        if (m_sound.framesHeard == 0) {
            ExamineSilence();
        } else {
            ExamineSequence();
            ExamineSpeed();
            ExamineChannels();
            ExamineLevel();
            ExamineDelay();
        }
        return std::move(m_verdict);
    }

private:
    void Break(std::string_view clause, std::string text)
    {
        m_verdict.broken.push_back({std::string(clause), std::move(text)});
    }

    void ExamineSilence()
    {
        const float peak = PeakOf(m_sound);
        if (peak < audiblePeak) {
            Break("SPK-16", fmt::format("nothing was heard in {:.1f} s", m_sound.seconds));
        } else {
            Break("SPK-3",
                  fmt::format("sound was heard (peak {:.1f} dB), but none of the {} frames that were sent",
                              20 * std::log10(peak), m_sound.framesSent));
        }
    }

    void ExamineSequence()
    {
        const std::string faults = FaultsOfSequence(m_sound);
        if (!faults.empty()) {
            Break("SPK-16", faults);
            m_verdict.warnings.emplace_back(
                "a busy PC loses sound, too: repeat the check on an idle one before "
                "looking for a fault in the module");
        }
    }

    void ExamineSpeed()
    {
        if (std::abs(m_sound.speed - 1) > mostSpeedError) {
            Break("SPK-17", fmt::format("the sound was heard at {:.4f} times its speed", m_sound.speed));
        }
    }

    void ExamineChannels()
    {
        if (m_channels == HeardChannels::SWAPPED) {
            Break("SPK-18", "the left channel was heard on the right, and the right one on the left");
        } else if (m_channels == HeardChannels::MIXED) {
            Break("SPK-18", "both channels were heard on one side, or on both");
        }
    }

    // A sound of mixed channels has another level for this reason alone.
    void ExamineLevel()
    {
        const bool separate = m_channels == HeardChannels::KEPT || m_channels == HeardChannels::SWAPPED;
        const auto isNear = [&](double level) {
            return std::abs(m_sound.levelDb - level) <= mostLevelErrorDb;
        };
        if (separate && !m_conditions.levelsDb.empty() &&
            std::ranges::none_of(m_conditions.levelsDb, isNear)) {
            std::string expected;
            for (const double level : m_conditions.levelsDb) {
                expected += fmt::format("{}{:.1f}", expected.empty() ? "" : " or ", level);
            }
            Break("SPK-19", fmt::format("the sound was heard at {:.1f} dB instead of {} dB", m_sound.levelDb,
                                        expected));
        }
    }

    void ExamineDelay()
    {
        if (!m_conditions.firstWriteMs) {
            return;
        }
        const double delay = m_sound.delayMs - *m_conditions.firstWriteMs;
        if (delay > longestDelayMs + soundSystemDelayMs) {
            Break("SPK-20", fmt::format("the sound was heard {:.0f} ms after it was written", delay));
        } else if (delay > usualDelayMs + soundSystemDelayMs) {
            m_verdict.warnings.push_back(fmt::format(
                "the sound was heard {:.0f} ms after it was written; it should be {:.0f} ms at most", delay,
                usualDelayMs));
        }
    }

    const HeardSound &m_sound;
    const HeardChannels m_channels;
    const HeardConditions &m_conditions;
    HeardVerdict m_verdict;
};

std::string GapsText(const std::vector<double> &gapsAtSeconds)
{
    std::string text;
    const size_t named = std::min(gapsAtSeconds.size(), mostGapsNamed);
    for (size_t i = 0; i < named; ++i) {
        text += fmt::format("{}{:.3f} s", text.empty() ? "" : ", ", gapsAtSeconds[i]);
    }
    if (gapsAtSeconds.size() > named) {
        text += fmt::format(" and {} more places", gapsAtSeconds.size() - named);
    }
    return text;
}

bool IsInaudible(const HeardSound &sound)
{
    return PeakOf(sound) < audiblePeak;
}

// Whether neither sound has a frame that can be recognised. Single lost frames are no excuse: losses of a
// busy PC in the control would hide losses of the module.
bool IsUnheardAlike(const HeardSound &sound, const HeardSound &control)
{
    return sound.framesHeard == 0 && control.framesHeard == 0 && IsInaudible(control) == IsInaudible(sound);
}

void WarnOfDamagedControl(HeardVerdict &verdict, const HeardSound &control)
{
    const std::string faults = FaultsOfSequence(control);
    if (control.framesHeard > 0 && !faults.empty()) {
        verdict.warnings.push_back(fmt::format(
            "the checker's own sound, played without the module, was damaged, too ({}): repeat the "
            "check on an idle PC",
            faults));
    }
}

bool Breaks(const HeardVerdict &verdict, const std::string &clause)
{
    return std::ranges::any_of(verdict.broken,
                               [&](const BrokenClause &broken) { return broken.clause == clause; });
}

// Whether the control explains a clause that `heard` breaks.
bool IsExplained(const std::string &clause, const HeardWatermark &heard, const HeardWatermark &control,
                 const HeardVerdict &ofControl)
{
    if (clause == "SPK-3" || clause == "SPK-16") {
        return IsUnheardAlike(heard.sound, control.sound);
    }
    if (control.sound.framesHeard == 0) { // nothing else is known about the control
        return false;
    }
    if (clause == "SPK-17") {
        return Breaks(ofControl, clause) &&
               std::abs(heard.sound.speed - control.sound.speed) <= mostSpeedError;
    }
    if (clause == "SPK-18") {
        return heard.channels == control.channels;
    }
    if (clause == "SPK-19") {
        return std::abs(heard.sound.levelDb - control.sound.levelDb) <= mostLevelErrorDb;
    }
    return Breaks(ofControl, clause);
}

// Collects what remains and what is excused.
class Comparison {
public:
    void Add(BrokenClause broken, bool isExplained)
    {
        (isExplained ? m_excused : m_verdict.broken).push_back(std::move(broken));
    }

    HeardVerdict Take()
    {
        if (!m_excused.empty()) {
            std::string faults;
            for (const BrokenClause &broken : m_excused) {
                faults += fmt::format("{}{}: {}", faults.empty() ? "" : "; ", broken.clause, broken.text);
            }
            m_verdict.excuse = fmt::format(
                "this PC changes sound: the checker's own sound, played without the module, had the same "
                "faults "
                "({}); switch off the loudspeaker's audio enhancements, spatial sound and mono audio, close "
                "other programs, and repeat the check",
                faults);
        }
        return std::move(m_verdict);
    }

private:
    HeardVerdict m_verdict;
    std::vector<BrokenClause> m_excused;
};

// What is wrong with one sound of a pair. Empty: nothing.
std::string FaultOfWatermark(const HeardPair &heard)
{
    const HeardSound &sound = heard.watermark.sound;
    if (sound.framesHeard == 0) {
        return "nothing was heard of the call speaker";
    }
    const std::string faults = FaultsOfSequence(sound);
    return faults.empty() ? "" : "the call speaker: " + faults;
}

uint32_t FramesWithoutTone(const HeardPair &heard)
{
    const uint32_t sent = heard.watermark.sound.framesSent;
    return sent - std::min(sent, heard.framesWithTone);
}

std::string FaultOfTone(const HeardPair &heard)
{
    return FramesWithoutTone(heard) > mostFramesWithoutTone
               ? fmt::format("the media speaker was heard in {} of {} frames", heard.framesWithTone,
                             heard.watermark.sound.framesSent)
               : "";
}

// Without a control, nothing is excused.
HeardVerdict VerdictOnPair(const HeardPair &heard, const HeardPair *control)
{
    Comparison comparison;
    if (std::string fault = FaultOfWatermark(heard); !fault.empty()) {
        comparison.Add({"SPK-21", std::move(fault)},
                       control != nullptr && IsUnheardAlike(heard.watermark.sound, control->watermark.sound));
    }
    if (std::string fault = FaultOfTone(heard); !fault.empty()) {
        comparison.Add({"SPK-21", std::move(fault)},
                       control != nullptr && heard.framesWithTone == 0 && control->framesWithTone == 0);
    }
    return comparison.Take();
}

} // namespace

HeardVerdict VerdictOn(const HeardWatermark &heard, const HeardConditions &conditions)
{
    return Examination(heard, conditions).Take();
}

HeardVerdict VerdictOn(const HeardPair &heard)
{
    return VerdictOnPair(heard, nullptr);
}

HeardVerdict CompareWithControl(const HeardWatermark &heard, const HeardConditions &conditions,
                                const HeardWatermark &control, const HeardConditions &ofControl)
{
    HeardVerdict verdict = VerdictOn(heard, conditions);
    const HeardVerdict controlVerdict = VerdictOn(control, ofControl);
    Comparison comparison;
    for (BrokenClause &broken : verdict.broken) {
        const bool isExplained = IsExplained(broken.clause, heard, control, controlVerdict);
        comparison.Add(std::move(broken), isExplained);
    }
    HeardVerdict compared = comparison.Take();
    compared.warnings = std::move(verdict.warnings);
    WarnOfDamagedControl(compared, control.sound);
    return compared;
}

HeardVerdict CompareWithControl(const HeardPair &heard, const HeardPair &control)
{
    HeardVerdict compared = VerdictOnPair(heard, &control);
    WarnOfDamagedControl(compared, control.watermark.sound);
    return compared;
}

std::string FaultsOfSequence(const HeardSound &sound)
{
    std::string text;
    const auto add = [&](const std::string &fault) { text += (text.empty() ? "" : "; ") + fault; };
    if (sound.framesMissing > 0) {
        add(fmt::format("{} of {} frames are missing", sound.framesMissing, sound.framesSent));
    }
    if (sound.framesRepeated > 0) {
        add(fmt::format("{} were heard again", sound.framesRepeated));
    }
    if (sound.framesOutOfOrder > 0) {
        add(fmt::format("{} were heard out of order", sound.framesOutOfOrder));
    }
    if (!sound.gapsAtSeconds.empty()) {
        add(fmt::format("the sound has gaps in the recording at {}", GapsText(sound.gapsAtSeconds)));
    }
    return text;
}

bool IsSilent(std::span<const float> samples)
{
    return std::ranges::all_of(samples, [](float sample) { return std::abs(sample) < audiblePeak; });
}

float PeakOf(const HeardSound &sound)
{
    return sound.envelope.empty() ? 0.0F : *std::ranges::max_element(sound.envelope);
}

} // namespace velto::check
