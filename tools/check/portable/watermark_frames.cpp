#include "check/portable/watermark_frames.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <complex>
#include <numbers>
#include <set>

#include "check/portable/fourier_transform.h"
#include "check/portable/watermark.h"

namespace velto::check {
namespace {

constexpr double twoPi = 2 * std::numbers::pi;
// Places in a frame at which frames are searched: a glide that is heard half a place late keeps 0.98 of its
// energy.
constexpr int placesInFrame = 32;
constexpr int32_t bandEdgeSteps = 2;    // a band reaches from below its lowest pitch to above its highest one
constexpr double leastDistance = 0.6;   // of two frames, in frames
constexpr double leastAmplitude = 3e-5; // one step of 16-bit sound: digital silence has no frames
constexpr double taperedAverage = 0.9375; // of the loudness of a glide: WatermarkSound fades its ends

// The frame number for each pair of pitches.
class FrameNumbers {
public:
    FrameNumbers()
    {
        for (uint32_t number = 0; number < watermarkNumbers; ++number) {
            m_numbers[leftVoice.PitchOf(number)][rightVoice.PitchOf(number)] = number;
        }
    }
    uint32_t Of(uint32_t leftPitch, uint32_t rightPitch) const { return m_numbers[leftPitch][rightPitch]; }

private:
    std::array<std::array<uint32_t, rightVoice.pitches>, leftVoice.pitches> m_numbers;
};

// The strongest pitch of a voice at a place.
struct Glide {
    uint32_t pitch = 0;
    double share = 0; // of the energy in the voice's band
    double amplitude = 0;
};

struct Place {
    double position;
    uint32_t leftPitch;
    uint32_t rightPitch;
    double share; // the smaller one of the two voices
};

// The correlation of one channel with a glide that begins at `position`.
class Correlation {
public:
    Correlation(std::span<const float> interleaved, uint32_t channels, uint32_t channel, double frameSamples)
        : m_sound(interleaved), m_channels(channels), m_channel(channel), m_frameSamples(frameSamples)
    {
    }

    double Amplitude(const WatermarkVoice &voice, uint32_t pitch, double position) const
    {
        const auto begin = static_cast<int64_t>(std::ceil(position));
        const auto end = static_cast<int64_t>(std::ceil(position + m_frameSamples));
        const auto frames = static_cast<int64_t>(m_sound.size() / m_channels);
        std::complex<double> sum;
        for (int64_t i = std::max<int64_t>(begin, 0); i < std::min(end, frames); ++i) {
            const double part = (static_cast<double>(i) - position) / m_frameSamples;
            const double periods = (voice.BeginOf(pitch) + voice.glideSteps * part / 2) * part;
            sum += std::polar<double>(m_sound[static_cast<size_t>(i) * m_channels + m_channel],
                                      -twoPi * periods);
        }
        return 2 * std::abs(sum) / m_frameSamples;
    }

private:
    std::span<const float> m_sound;
    uint32_t m_channels;
    uint32_t m_channel;
    double m_frameSamples;
};

// Multiplying a frame with a falling glide of the right slope turns its rising glide into a steady tone,
// which one transform finds whatever its pitch is. A real tone also has negative frequencies: there a falling
// glide rises and becomes a steady tone as well. So one transform shows both voices: the left one at positive
// frequencies, the right one at negative ones.
class FrameSearch {
public:
    FrameSearch(std::span<const float> sound, double frameSamples)
        : m_sound(sound),
          m_frameSamples(frameSamples),
          m_window(static_cast<size_t>(std::lround(frameSamples))),
          m_transform(
              std::bit_ceil(4 * m_window)), // four bins or more for a step: the nearest is near enough
          m_correlation(sound, 1, 0, frameSamples)
    {
        static_assert(leftVoice.glideSteps == -rightVoice.glideSteps);
        for (size_t i = 0; i < m_window; ++i) {
            const double part = static_cast<double>(i) / frameSamples;
            m_falling.push_back(
                std::polar(1.0F, static_cast<float>(-twoPi * leftVoice.glideSteps * part * part / 2)));
        }
    }

    // All places with at least this share, in order.
    std::vector<Place> Places(double leastShare)
    {
        std::vector<Place> places;
        const double hop = m_frameSamples / placesInFrame;
        for (double position = 0; position + m_frameSamples <= static_cast<double>(m_sound.size());
             position += hop) {
            const auto begin = static_cast<size_t>(std::lround(position));
            const Place place = PlaceAt(std::min(begin, m_sound.size() - m_window));
            if (place.share >= leastShare) {
                places.push_back(place);
            }
        }
        return places;
    }

    // Where the place's glides are loudest: the top of a parabola through the logarithms of their loudness at
    // the place and on both sides of it.
    double ExactPosition(const Place &place) const
    {
        const auto loudness = [&](double position) {
            return std::log(m_correlation.Amplitude(leftVoice, place.leftPitch, position) + 1e-12) +
                   std::log(m_correlation.Amplitude(rightVoice, place.rightPitch, position) + 1e-12);
        };
        const double step = m_frameSamples / placesInFrame / 2;
        const double before = loudness(place.position - step);
        const double here = loudness(place.position);
        const double after = loudness(place.position + step);
        const double curvature = before - 2 * here + after;
        return curvature < 0 ? place.position + step * 0.5 * (before - after) / curvature : place.position;
    }

private:
    Place PlaceAt(size_t begin)
    {
        const auto input = m_transform.Input();
        for (size_t i = 0; i < m_window; ++i) {
            input[i] = m_sound[begin + i] * m_falling[i];
        }
        const auto spectrum = m_transform.Run();
        const Glide left = StrongestGlide(spectrum, leftVoice, 1);
        const Glide right = StrongestGlide(spectrum, rightVoice, -1);
        const bool audible = std::min(left.amplitude, right.amplitude) >= leastAmplitude;
        return {static_cast<double>(begin), left.pitch, right.pitch,
                audible ? std::min(left.share, right.share) : 0};
    }

    // `sign` is that of the frequencies at which the voice is in the spectrum.
    Glide StrongestGlide(std::span<const std::complex<float>> spectrum, const WatermarkVoice &voice,
                         int sign) const
    {
        const double binsOfStep = static_cast<double>(spectrum.size()) / m_frameSamples;
        const auto binOf = [&](int32_t steps) {
            return static_cast<size_t>(std::lround(steps * binsOfStep));
        };
        const auto power = [&](size_t bin) {
            return std::norm(spectrum[sign > 0 ? bin : spectrum.size() - bin]);
        };
        Glide strongest;
        float peak = 0;
        for (uint32_t pitch = 0; pitch < voice.pitches; ++pitch) {
            const float here = power(binOf(voice.BeginOf(pitch)));
            if (here > peak) {
                peak = here;
                strongest.pitch = pitch;
            }
        }
        float band = 0;
        const size_t last = binOf(voice.BeginOf(voice.pitches - 1) + bandEdgeSteps);
        for (size_t bin = binOf(voice.lowestSteps - bandEdgeSteps); bin <= last; ++bin) {
            band += power(bin);
        }
        // A steady tone through the whole window has all of this energy in its peak.
        const auto window = static_cast<double>(m_window);
        strongest.share = band > 0 ? peak * static_cast<double>(spectrum.size()) / (window * band) : 0;
        strongest.amplitude = 2 * std::sqrt(peak) / window;
        return strongest;
    }

    std::span<const float> m_sound;
    double m_frameSamples;
    size_t m_window; // of a transform, in samples; the rest of its input is 0
    FourierTransform m_transform;
    Correlation m_correlation;
    std::vector<std::complex<float>> m_falling;
};

// The best places that are far enough from each other. Around a frame, several places show it.
std::vector<Place> BestPlaces(std::vector<Place> places, double frameSamples)
{
    std::stable_sort(places.begin(), places.end(),
                     [](const Place &a, const Place &b) { return a.share > b.share; });
    std::set<double> chosen;
    std::vector<Place> best;
    for (const Place &place : places) {
        const auto next = chosen.lower_bound(place.position - leastDistance * frameSamples);
        if (next == chosen.end() || *next > place.position + leastDistance * frameSamples) {
            chosen.insert(place.position);
            best.push_back(place);
        }
    }
    std::sort(best.begin(), best.end(),
              [](const Place &a, const Place &b) { return a.position < b.position; });
    return best;
}

} // namespace

std::vector<FoundFrame> FindFrames(std::span<const float> sound, double frameSamples, double leastShare)
{
    static const FrameNumbers numbers;
    std::vector<FoundFrame> frames;
    FrameSearch search(sound, frameSamples);
    for (const Place &place : BestPlaces(search.Places(leastShare), frameSamples)) {
        frames.push_back({search.ExactPosition(place), numbers.Of(place.leftPitch, place.rightPitch),
                          place.leftPitch, place.rightPitch});
    }
    return frames;
}

double GlideAmplitude(std::span<const float> interleaved, uint32_t channels, uint32_t channel, Voice voice,
                      const FoundFrame &frame, double frameSamples)
{
    const Correlation correlation(interleaved, channels, channel, frameSamples);
    const bool left = voice == Voice::LEFT;
    return correlation.Amplitude(left ? leftVoice : rightVoice, left ? frame.leftPitch : frame.rightPitch,
                                 frame.position) /
           taperedAverage;
}

} // namespace velto::check
