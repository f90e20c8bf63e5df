#include "check/portable/watermark_speed.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "check/portable/fourier_transform.h"
#include "check/portable/watermark.h"

namespace velto::check {
namespace {

constexpr double lowestSpeed = 0.4;
constexpr double highestSpeed = 2.5;
// Long enough to separate a steady tone from the glides by 20 dB; a recording has several windows of it.
constexpr double windowSeconds = 1.2;
constexpr uint32_t largestTransform = 131072;
// A speed this close to 1 is not tried in addition to 1.
constexpr double sameSpeed = 0.001;

// The power of each frequency, averaged over the recording: bin b is b * rate / size Hz.
std::vector<double> PowerSpectrum(std::span<const float> sound, uint32_t size)
{
    FourierTransform transform(size);
    std::vector<double> power(size / 2);
    const size_t hop = size / 2;
    for (size_t begin = 0; begin == 0 || begin + size <= sound.size(); begin += hop) {
        for (uint32_t i = 0; i < size; ++i) {
            const double hann = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * i / size);
            transform.Input()[i] =
                begin + i < sound.size() ? static_cast<float>(hann) * sound[begin + i] : 0.0F;
        }
        const auto spectrum = transform.Run();
        for (size_t bin = 0; bin < power.size(); ++bin) {
            power[bin] += std::norm(spectrum[bin]);
        }
    }
    return power;
}

// The top of a peak between bins: the top of a parabola through three logarithms.
double ExactBin(const std::vector<double> &power, uint32_t bin)
{
    const double before = std::log(power[bin - 1] + 1e-30);
    const double here = std::log(power[bin] + 1e-30);
    const double after = std::log(power[bin + 1] + 1e-30);
    const double curvature = before - 2 * here + after;
    return curvature < 0 ? bin + 0.5 * (before - after) / curvature : bin;
}

} // namespace

std::vector<double> LikelySpeeds(std::span<const float> sound, uint32_t rateHz)
{
    const uint32_t size =
        std::min(std::bit_ceil(static_cast<uint32_t>(rateHz * windowSeconds)), largestTransform);
    const std::vector<double> power = PowerSpectrum(sound, size);
    const double binsOfLeftTone = leftVoice.steadySteps * watermarkStepHz * size / rateHz;
    constexpr double ratio = double{rightVoice.steadySteps} / leftVoice.steadySteps;

    uint32_t best = 0;
    double bestProduct = 0;
    const auto last = static_cast<uint32_t>(highestSpeed * binsOfLeftTone);
    for (auto bin = static_cast<uint32_t>(lowestSpeed * binsOfLeftTone); bin <= last; ++bin) {
        const auto right = static_cast<size_t>(std::lround(bin * ratio));
        if (right + 1 >= power.size()) {
            break;
        }
        const double product = power[bin] * std::max({power[right - 1], power[right], power[right + 1]});
        if (product > bestProduct) {
            best = bin;
            bestProduct = product;
        }
    }
    if (best == 0) {
        return {1.0};
    }
    const double speed = ExactBin(power, best) / binsOfLeftTone;
    return std::abs(speed - 1) < sameSpeed ? std::vector{speed} : std::vector{speed, 1.0};
}

} // namespace velto::check
