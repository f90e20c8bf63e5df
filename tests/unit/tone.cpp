#include "tone.h"

#include <cmath>
#include <numbers>

namespace velto_test {
namespace {

constexpr size_t fewestFrames = 256;
constexpr double largestNoise = 0.1;      // of the tone, -20 dB
constexpr double largestDeviation = 0.12; // of the amplitude

double Phase(double position, double hz, double rateHz)
{
    return 2 * std::numbers::pi * hz * position / rateHz;
}

struct Fit {
    double amplitude;
    double noise; // the rest of the sound, as a part of its power
};

// Fits a sine and a cosine to one channel by least squares.
Fit FitSine(const std::vector<double> &sound, uint32_t channels, uint32_t channel, double hz, double rateHz)
{
    double ss = 0;
    double cc = 0;
    double sc = 0;
    double xs = 0;
    double xc = 0;
    double power = 0;
    for (size_t i = 0; i < sound.size() / channels; ++i) {
        const double x = sound[i * channels + channel];
        const double s = std::sin(Phase(static_cast<double>(i), hz, rateHz));
        const double c = std::cos(Phase(static_cast<double>(i), hz, rateHz));
        ss += s * s;
        cc += c * c;
        sc += s * c;
        xs += x * s;
        xc += x * c;
        power += x * x;
    }
    const double determinant = ss * cc - sc * sc;
    const double sine = (xs * cc - xc * sc) / determinant;
    const double cosine = (xc * ss - xs * sc) / determinant;
    return {std::hypot(sine, cosine), power > 0 ? 1 - (sine * xs + cosine * xc) / power : 1};
}

constexpr double largestNoisePower = largestNoise * largestNoise;

} // namespace

double ToneSample(uint64_t position, uint32_t channel, double rateHz)
{
    return toneAmplitude[channel] * std::sin(Phase(static_cast<double>(position), toneHz[channel], rateHz));
}

bool IsSine(const std::vector<double> &sound, double hz, double rateHz)
{
    const Fit fit = FitSine(sound, 1, 0, hz, rateHz);
    return fit.amplitude > 0.01 && fit.noise <= largestNoisePower;
}

bool IsTone(const std::vector<double> &sound, uint32_t channels, uint32_t channel, double rateHz)
{
    const Fit fit = FitSine(sound, channels, channel, toneHz[channel], rateHz);
    return std::abs(fit.amplitude - toneAmplitude[channel]) <= largestDeviation * toneAmplitude[channel] &&
           fit.noise <= largestNoisePower;
}

bool AreTones(const std::vector<double> &sound, uint32_t channels, double rateHz)
{
    return sound.size() >= fewestFrames * channels && IsTone(sound, channels, 0, rateHz) &&
           IsTone(sound, channels, 1, rateHz);
}

} // namespace velto_test
