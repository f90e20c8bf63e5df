#include "check/portable/watermark.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velto::check {
namespace {

// The loudness of a glide rises and falls this long at its ends: no click, and 5 % of its energy is lost.
constexpr uint32_t edgeSamples = 64;

double EdgeFactor(uint32_t sample)
{
    const uint32_t fromEnd = std::min(sample, watermarkFrameSamples - 1 - sample);
    const double part = std::min(1.0, (fromEnd + 0.5) / edgeSamples);
    return 0.5 - 0.5 * std::cos(std::numbers::pi * part);
}

// One sample of a channel.
float Sample(const WatermarkVoice &voice, uint32_t frame, uint32_t sample)
{
    const double part = static_cast<double>(sample) / watermarkFrameSamples; // of the frame, 0 to 1
    const int32_t begin = voice.BeginOf(voice.PitchOf(frame));
    const double glidePeriods = begin * part + voice.glideSteps * part * part / 2;
    const double steadyPeriods = voice.steadySteps * part;
    return static_cast<float>(glideAmplitude * EdgeFactor(sample) *
                                  std::cos(2 * std::numbers::pi * glidePeriods) +
                              steadyAmplitude * std::cos(2 * std::numbers::pi * steadyPeriods));
}

} // namespace

std::vector<float> WatermarkSound(uint32_t frames)
{
    std::vector<float> interleaved;
    interleaved.reserve(size_t{frames} * watermarkFrameSamples * 2);
    for (uint32_t frame = 0; frame < frames; ++frame) {
        for (uint32_t sample = 0; sample < watermarkFrameSamples; ++sample) {
            interleaved.push_back(Sample(leftVoice, frame, sample));
            interleaved.push_back(Sample(rightVoice, frame, sample));
        }
    }
    return interleaved;
}

} // namespace velto::check
