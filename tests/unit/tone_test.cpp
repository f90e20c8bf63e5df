// The check for tones must refuse sound that is not the source's. Otherwise the fault walk would accept any
// bytes as sound.
#include "tone.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace velto_test;

constexpr double rateHz = 48000;
constexpr size_t frames = 1024;

// Interleaved stereo.
std::vector<double> Sound(const std::function<double(size_t frame, uint32_t channel)> &sample)
{
    std::vector<double> sound;
    for (size_t i = 0; i < frames; ++i) {
        sound.push_back(sample(i, 0));
        sound.push_back(sample(i, 1));
    }
    return sound;
}

TEST(Tone, AcceptsItsSoundAtAnyPhase)
{
    for (const size_t start : {0, 17, 4000}) {
        EXPECT_TRUE(AreTones(
            Sound([&](size_t i, uint32_t channel) { return ToneSample(start + i, channel, rateHz); }), 2,
            rateHz));
    }
}

TEST(Tone, RefusesSilenceAndNoise)
{
    EXPECT_FALSE(AreTones(Sound([](size_t, uint32_t) { return 0.0; }), 2, rateHz));
    uint32_t state = 1;
    EXPECT_FALSE(AreTones(Sound([&](size_t, uint32_t) {
                              state = state * 1664525U + 1013904223U;
                              return static_cast<double>(state >> 16) / 65536 - 0.5;
                          }),
                          2, rateHz));
    EXPECT_FALSE(AreTones({}, 2, rateHz));
}

TEST(Tone, RefusesSwappedChannelsWrongRateAndWrongVolume)
{
    const auto at = [](double rate, double volume, bool swapped) {
        return Sound([=](size_t i, uint32_t channel) {
            return volume * ToneSample(i, swapped ? 1 - channel : channel, rate);
        });
    };
    EXPECT_TRUE(AreTones(at(rateHz, 1, false), 2, rateHz));
    EXPECT_FALSE(AreTones(at(rateHz, 1, true), 2, rateHz));
    EXPECT_FALSE(AreTones(at(44100, 1, false), 2, rateHz));
    EXPECT_FALSE(AreTones(at(rateHz, 0.7, false), 2, rateHz));
}

TEST(Tone, RefusesMissingPiece)
{
    const auto gap = [](size_t i) { return i >= 400 && i < 440; };
    EXPECT_FALSE(AreTones(
        Sound([&](size_t i, uint32_t channel) { return gap(i) ? 0.0 : ToneSample(i, channel, rateHz); }), 2,
        rateHz));
    EXPECT_FALSE(AreTones(
        Sound([&](size_t i, uint32_t channel) { return ToneSample(i < 400 ? i : i + 11, channel, rateHz); }),
        2, rateHz));
}

} // namespace
