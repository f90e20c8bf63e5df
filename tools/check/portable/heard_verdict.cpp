#include "check/portable/heard_verdict.h"

#include <algorithm>
#include <cmath>

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

} // namespace

HeardVerdict VerdictOn(const HeardWatermark &heard, const HeardConditions &conditions)
{
    return Examination(heard, conditions).Take();
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

float PeakOf(const HeardSound &sound)
{
    return sound.envelope.empty() ? 0.0F : *std::ranges::max_element(sound.envelope);
}

} // namespace velto::check
