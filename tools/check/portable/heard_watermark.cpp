#include "check/portable/heard_watermark.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "check/portable/watermark.h"
#include "check/portable/watermark_speed.h"

namespace velto::check {
namespace {

constexpr size_t envelopeParts = 300;
// How much later or earlier than expected a frame begins, in frames, if sound was inserted or cut before it:
// 1 ms.
constexpr double leastShift = 0.05;
constexpr size_t framesOfExactSpeed =
    8; // in a row; fewer would show the speed less exactly than the steady tones do
constexpr size_t framesOfDelay = 9;    // at the begin
constexpr size_t framesOfLevel = 64;   // spread over the sound
constexpr double leastSeparation = 10; // as a ratio of powers: 10 dB

struct RecordedSound {
    std::span<const float> interleaved;
    uint32_t rateHz;
    uint32_t channels;

    size_t Frames() const { return interleaved.size() / channels; }
};

// The frames of the watermark in a recording, with their numbers in the sound that was sent.
struct Hearing {
    double frameSamples = 0; // the length of a frame as it was heard, in samples of the recording
    std::vector<FoundFrame> frames;
};

std::vector<float> SumOfChannels(const RecordedSound &recording)
{
    std::vector<float> sum(recording.Frames());
    for (size_t i = 0; i < sum.size(); ++i) {
        for (uint32_t channel = 0; channel < recording.channels; ++channel) {
            sum[i] += recording.interleaved[i * recording.channels + channel];
        }
    }
    return sum;
}

double FrameSamplesAt(const RecordedSound &recording, double speed)
{
    return double{watermarkFrameSamples} * recording.rateHz / watermarkRateHz / speed;
}

// The numbers of frames repeat every watermarkNumbers frames: takes the one nearest to the expected number.
// Drops frames with a number that was not sent.
void CompleteNumbers(std::vector<FoundFrame> &frames, uint32_t framesSent)
{
    int64_t expected = 0;
    std::erase_if(frames, [&](FoundFrame &frame) {
        const double rounds = static_cast<double>(expected - frame.number) / watermarkNumbers;
        const int64_t number = frame.number + std::max<int64_t>(std::llround(rounds), 0) * watermarkNumbers;
        if (number >= framesSent) {
            return true;
        }
        frame.number = static_cast<uint32_t>(number);
        expected = number + 1;
        return false;
    });
}

Hearing ListenAt(double speed, const RecordedSound &recording, std::span<const float> sum,
                 uint32_t framesSent, double leastShare)
{
    Hearing hearing{FrameSamplesAt(recording, speed), {}};
    hearing.frames = FindFrames(sum, hearing.frameSamples, leastShare);
    CompleteNumbers(hearing.frames, framesSent);
    return hearing;
}

// Whether the frame `later` begins where `earlier` ends.
bool Follows(const FoundFrame &later, const FoundFrame &earlier, double frameSamples)
{
    return std::abs((later.position - earlier.position) / frameSamples - 1) < leastShift;
}

// From the first to the last frame of the longest undisturbed part.
double ExactFrameSamples(const Hearing &hearing)
{
    size_t longest = 0;
    double samples = hearing.frameSamples;
    size_t begin = 0;
    for (size_t i = 1; i < hearing.frames.size(); ++i) {
        if (!Follows(hearing.frames[i], hearing.frames[i - 1], hearing.frameSamples)) {
            begin = i;
        } else if (i - begin > longest) {
            longest = i - begin;
            samples =
                (hearing.frames[i].position - hearing.frames[begin].position) / static_cast<double>(longest);
        }
    }
    return longest >= framesOfExactSpeed ? samples : hearing.frameSamples;
}

// At the speed at which the most frames are heard.
Hearing Listen(const RecordedSound &recording, uint32_t framesSent, double leastShare)
{
    const std::vector<float> sum = SumOfChannels(recording);
    Hearing best;
    for (const double speed : LikelySpeeds(sum, recording.rateHz)) {
        Hearing hearing = ListenAt(speed, recording, sum, framesSent, leastShare);
        if (hearing.frames.size() > best.frames.size()) {
            best = std::move(hearing);
        }
    }
    best.frameSamples = ExactFrameSamples(best);
    return best;
}

double Median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Where frame 0 begins, in samples: the median, since one of the first frames may be lost or displaced.
double Begin(const Hearing &hearing)
{
    std::vector<double> begins;
    for (size_t i = 0; i < std::min(hearing.frames.size(), framesOfDelay); ++i) {
        begins.push_back(hearing.frames[i].position - hearing.frames[i].number * hearing.frameSamples);
    }
    return Median(begins);
}

// The length of the longest sequence of increasing numbers that remains when others are removed.
size_t LongestOrder(const std::vector<uint32_t> &numbers)
{
    std::vector<uint32_t> lastOfLength; // the smallest number that ends a sequence of each length
    for (const uint32_t number : numbers) {
        const auto place = std::lower_bound(lastOfLength.begin(), lastOfLength.end(), number);
        if (place == lastOfLength.end()) {
            lastOfLength.push_back(number);
        } else {
            *place = number;
        }
    }
    return lastOfLength.size();
}

void CountFrames(const Hearing &hearing, HeardSound &sound)
{
    std::vector<bool> heard(sound.framesSent);
    std::vector<uint32_t> firstTimes;
    for (const FoundFrame &frame : hearing.frames) {
        sound.framesInOrder.push_back(frame.number);
        if (!heard[frame.number]) {
            firstTimes.push_back(frame.number);
        }
        heard[frame.number] = true;
    }
    sound.framesHeard = static_cast<uint32_t>(firstTimes.size());
    sound.framesMissing = sound.framesSent - sound.framesHeard;
    sound.framesRepeated = static_cast<uint32_t>(hearing.frames.size() - firstTimes.size());
    sound.framesOutOfOrder = static_cast<uint32_t>(firstTimes.size() - LongestOrder(firstTimes));
}

// Finds the begins of gaps: where frames are missing, and where sound was inserted or cut.
class GapSearch {
public:
    GapSearch(const Hearing &hearing, uint32_t framesSent) : m_hearing(hearing), m_missing(framesSent, true)
    {
        for (const FoundFrame &frame : hearing.frames) {
            m_missing[frame.number] = false;
        }
    }

    // In samples of the recording.
    std::vector<double> Find() const
    {
        const auto &frames = m_hearing.frames;
        std::vector<double> gaps;
        if (AnyMissing(0, frames.front().number)) {
            gaps.push_back(std::max(0.0, Begin(m_hearing)));
        }
        for (size_t i = 1; i < frames.size(); ++i) {
            const double end = frames[i - 1].position + m_hearing.frameSamples;
            const double shift = (frames[i].position - end) / m_hearing.frameSamples;
            if (std::abs(shift) >= leastShift || AnyMissing(frames[i - 1].number + 1, frames[i].number)) {
                gaps.push_back(end);
            }
        }
        if (AnyMissing(frames.back().number + 1, static_cast<uint32_t>(m_missing.size()))) {
            gaps.push_back(frames.back().position + m_hearing.frameSamples);
        }
        return gaps;
    }

private:
    bool AnyMissing(uint32_t begin, uint32_t end) const
    {
        return begin < end &&
               std::find(m_missing.begin() + begin, m_missing.begin() + end, true) != m_missing.begin() + end;
    }

    const Hearing &m_hearing;
    std::vector<bool> m_missing; // by number
};

// The powers of both voices in each channel of the recording.
struct VoicePowers {
    std::vector<double> left;
    std::vector<double> right;
};

VoicePowers PowersOf(const RecordedSound &recording, const FoundFrame &frame, double frameSamples)
{
    VoicePowers powers;
    for (uint32_t channel = 0; channel < recording.channels; ++channel) {
        const auto power = [&](Voice voice) {
            return std::pow(GlideAmplitude(recording.interleaved, recording.channels, channel, voice, frame,
                                           frameSamples),
                            2);
        };
        powers.left.push_back(power(Voice::LEFT));
        powers.right.push_back(power(Voice::RIGHT));
    }
    return powers;
}

// Frames spread evenly over the sound.
std::vector<VoicePowers> SamplePowers(const RecordedSound &recording, const Hearing &hearing)
{
    std::vector<VoicePowers> samples;
    const size_t count = std::min(hearing.frames.size(), framesOfLevel);
    for (size_t i = 0; i < count; ++i) {
        samples.push_back(
            PowersOf(recording, hearing.frames[i * hearing.frames.size() / count], hearing.frameSamples));
    }
    return samples;
}

double Sum(const std::vector<double> &values)
{
    double sum = 0;
    for (const double value : values) {
        sum += value;
    }
    return sum;
}

double LevelDb(const std::vector<VoicePowers> &samples)
{
    std::vector<double> powers;
    powers.reserve(samples.size());
    for (const VoicePowers &sample : samples) {
        powers.push_back((Sum(sample.left) + Sum(sample.right)) / 2);
    }
    return 10 * std::log10(Median(powers) / (glideAmplitude * glideAmplitude));
}

HeardChannels ChannelsOf(const std::vector<VoicePowers> &samples)
{
    if (samples.front().left.size() < 2) {
        return HeardChannels::UNKNOWN;
    }
    double leftOnLeft = 0;
    double leftOnRight = 0;
    double rightOnLeft = 0;
    double rightOnRight = 0;
    for (const VoicePowers &sample : samples) {
        leftOnLeft += sample.left[0];
        leftOnRight += sample.left[1];
        rightOnLeft += sample.right[0];
        rightOnRight += sample.right[1];
    }
    if (leftOnLeft > leastSeparation * leftOnRight && rightOnRight > leastSeparation * rightOnLeft) {
        return HeardChannels::KEPT;
    }
    const bool swapped =
        leftOnRight > leastSeparation * leftOnLeft && rightOnLeft > leastSeparation * rightOnRight;
    return swapped ? HeardChannels::SWAPPED : HeardChannels::MIXED;
}

std::vector<float> EnvelopeOf(const RecordedSound &recording)
{
    std::vector<float> envelope(std::min(envelopeParts, recording.Frames()));
    for (size_t i = 0; i < recording.interleaved.size() / recording.channels * recording.channels; ++i) {
        float &peak = envelope[i / recording.channels * envelope.size() / recording.Frames()];
        peak = std::min(1.0F, std::max(peak, std::abs(recording.interleaved[i])));
    }
    return envelope;
}

} // namespace

HeardWatermark ExamineWatermark(std::span<const float> interleaved, uint32_t rateHz, uint32_t channels,
                                uint32_t framesSent, double leastShare)
{
    const RecordedSound recording{interleaved, rateHz, channels};
    HeardWatermark heard;
    HeardSound &sound = heard.sound;
    sound.seconds = static_cast<double>(recording.Frames()) / rateHz;
    sound.framesSent = framesSent;
    sound.envelope = EnvelopeOf(recording);
    const Hearing hearing = Listen(recording, framesSent, leastShare);
    CountFrames(hearing, sound);
    if (hearing.frames.empty()) {
        return heard;
    }
    sound.speed = FrameSamplesAt(recording, 1) / hearing.frameSamples;
    sound.delayMs = Begin(hearing) * 1000 / rateHz;
    for (const double gap : GapSearch(hearing, framesSent).Find()) {
        sound.gapsAtSeconds.push_back(gap / rateHz);
    }
    const std::vector<VoicePowers> powers = SamplePowers(recording, hearing);
    sound.levelDb = LevelDb(powers);
    heard.channels = ChannelsOf(powers);
    sound.channelsSwapped = heard.channels == HeardChannels::SWAPPED;
    return heard;
}

HeardSound FindWatermark(std::span<const float> interleaved, uint32_t rateHz, uint32_t channels,
                         uint32_t framesSent)
{
    return ExamineWatermark(interleaved, rateHz, channels, framesSent).sound;
}

} // namespace velto::check
