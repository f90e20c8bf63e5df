// The encoder's sound quality: each test encodes a signal, decodes it and compares both.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "aac_round_trip.h"

namespace {

using namespace velto_test;

constexpr size_t oneSecond = 48000;
constexpr size_t stereoUnitBytes = 1536; // the maximum of two channels
constexpr size_t monoUnitBytes = 768;

size_t LargestUnit(const std::vector<EncodedUnit> &units)
{
    size_t largest = 0;
    for (const EncodedUnit &unit : units) {
        largest = std::max(largest, unit.bytes.size());
    }
    return largest;
}

double RoundTripDb(const EncodeParam &param, const Pcm &pcm)
{
    return SignalToNoiseDb(pcm, DecodeUnits(param, EncodePcm(param, pcm)), ChannelCountOf(param.channelCode));
}

Pcm WhiteNoise(size_t samples, uint32_t channels)
{
    std::mt19937 random(1);
    return MakePcm(samples, channels,
                   [&](size_t, uint32_t) { return static_cast<double>(random()) / 2147483648.0 - 1; });
}

TEST(AacEncoderSound, SurvivesRoundTripInStereo)
{
    const Pcm pcm = MakePcm(oneSecond, 2, [](size_t i, uint32_t channel) {
        return channel == 0 ? 0.5 * Sine(i, 440) : 0.25 * Sine(i, 1300);
    });
    EXPECT_GT(RoundTripDb(StereoParam(), pcm), 30);
}

TEST(AacEncoderSound, KeepsSilentChannelSilent)
{
    const Pcm pcm = MakePcm(
        oneSecond, 2, [](size_t i, uint32_t channel) { return channel == 0 ? 0.5 * Sine(i, 440) : 0.0; });
    const std::vector<float> decoded = DecodeUnits(StereoParam(), EncodePcm(StereoParam(), pcm));
    double left = 0;
    double right = 0;
    for (size_t i = 0; i + 1 < decoded.size(); i += 2) {
        left += std::abs(decoded[i]);
        right += std::abs(decoded[i + 1]);
    }
    EXPECT_GT(left, 1000 * right);
}

TEST(AacEncoderSound, SurvivesRoundTripInMono)
{
    const Pcm pcm = MakePcm(oneSecond, 1, [](size_t i, uint32_t) { return 0.5 * Sine(i, 440); });
    EXPECT_GT(RoundTripDb(MonoParam(), pcm), 30);
}

TEST(AacEncoderSound, SurvivesRoundTripAtEveryStandardRate)
{
    for (const uint32_t rateHz : {96000U, 88200U, 64000U, 48000U, 44100U, 32000U, 24000U, 22050U, 16000U,
                                  12000U, 11025U, 8000U, 7350U}) {
        EncodeParam param = MonoParam();
        param.sampleRateHz = rateHz;
        param.bitRate = 32000;
        const Pcm pcm = MakePcm(rateHz, 1, [&](size_t i, uint32_t) { return 0.5 * Sine(i, 440, rateHz); });
        EXPECT_GT(RoundTripDb(param, pcm), 20) << rateHz;
    }
}

TEST(AacEncoderSound, EncodesSilenceAsSilenceInSmallPackets)
{
    for (const EncodeParam &param : {StereoParam(), MonoParam()}) {
        const Pcm pcm(oneSecond * ChannelCountOf(param.channelCode), 0);
        const std::vector<EncodedUnit> units = EncodePcm(param, pcm);
        EXPECT_LT(LargestUnit(units), 32U);
        for (const float sample : DecodeUnits(param, units)) {
            ASSERT_EQ(sample, 0.0F);
        }
    }
}

TEST(AacEncoderSound, SurvivesRoundTripAtFullScaleWithoutWrapping)
{
    const Pcm pcm = MakePcm(oneSecond, 2, [](size_t i, uint32_t) { return 1.1 * Sine(i, 300); });
    EXPECT_EQ(*std::min_element(pcm.begin(), pcm.end()), -32768);
    EXPECT_EQ(*std::max_element(pcm.begin(), pcm.end()), 32767);
    EXPECT_GT(RoundTripDb(StereoParam(), pcm), 20);
}

TEST(AacEncoderSound, FitsFullScaleNoiseIntoMaximumPacketSize)
{
    const std::vector<EncodedUnit> stereo = EncodePcm(StereoParam(), WhiteNoise(3 * oneSecond, 2));
    EXPECT_LE(LargestUnit(stereo), stereoUnitBytes);
    const std::vector<EncodedUnit> mono = EncodePcm(MonoParam(), WhiteNoise(3 * oneSecond, 1));
    EXPECT_LE(LargestUnit(mono), monoUnitBytes);
}

TEST(AacEncoderSound, FitsNoiseIntoMaximumPacketSizeAtHighestBitRate)
{
    EncodeParam param = StereoParam();
    param.bitRate = 576000;
    const std::vector<EncodedUnit> units = EncodePcm(param, WhiteNoise(oneSecond, 2));
    EXPECT_LE(LargestUnit(units), stereoUnitBytes);
    EXPECT_EQ(DecodeUnits(param, units).size(), units.size() * aacFrameLength * 2);
}

TEST(AacEncoderSound, MeetsBitRateOnAverage)
{
    const std::vector<EncodedUnit> units = EncodePcm(StereoParam(), WhiteNoise(5 * oneSecond, 2));
    size_t bytes = 0;
    for (const EncodedUnit &unit : units) {
        bytes += unit.bytes.size();
    }
    EXPECT_NEAR(static_cast<double>(bytes) * 8 / 5, 128000, 0.05 * 128000);
}

TEST(AacEncoderSound, WritesNoAdtsHeaders)
{
    for (const EncodedUnit &unit : EncodePcm(StereoParam(), WhiteNoise(oneSecond / 10, 2))) {
        ASSERT_GE(unit.bytes.size(), 2U);
        EXPECT_FALSE(unit.bytes[0] == 0xFF && (unit.bytes[1] & 0xF0) == 0xF0);
    }
}

TEST(AacEncoderSound, EncodesLastFrameThatIsOneSampleShort)
{
    const Pcm pcm =
        MakePcm(10 * aacFrameLength - 1, 2, [](size_t i, uint32_t) { return 0.5 * Sine(i, 440); });
    const std::vector<EncodedUnit> units = EncodePcm(StereoParam(), pcm);
    EXPECT_EQ(units.size(), 11U);
    EXPECT_GT(SignalToNoiseDb(pcm, DecodeUnits(StereoParam(), units), 2), 20);
}

TEST(AacEncoderSound, EncodesLastFrameOfOneSample)
{
    const Pcm pcm = MakePcm(3 * aacFrameLength + 1, 1, [](size_t i, uint32_t) { return 0.5 * Sine(i, 440); });
    const std::vector<EncodedUnit> units = EncodePcm(MonoParam(), pcm);
    EXPECT_GT(SignalToNoiseDb(pcm, DecodeUnits(MonoParam(), units), 1), 20);
}

} // namespace
