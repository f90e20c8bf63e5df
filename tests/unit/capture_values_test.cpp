#include "capture/capture_format.h"
#include "capture/packet_reader.h"
#include "capture/capture_converter.h"
#include "support/com.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using namespace velto;

TEST(PcmConversion, MapsFullScaleSymmetrically)
{
    EXPECT_EQ(FloatToPcm16(1.0F), 32767);
    EXPECT_EQ(FloatToPcm16(-1.0F), -32767);
}

TEST(PcmConversion, TruncatesTowardZero)
{
    EXPECT_EQ(FloatToPcm16(0.5F), 16383);
    EXPECT_EQ(FloatToPcm16(-0.5F), -16383);
    EXPECT_EQ(FloatToPcm16(0.99999F), 32766);
    EXPECT_EQ(FloatToPcm16(1.0F / 65536), 0);
    EXPECT_EQ(FloatToPcm16(-1.0F / 65536), 0);
    EXPECT_EQ(FloatToPcm16(0.0F), 0);
}

TEST(PcmConversion, LimitsValuesBeyondFullScale)
{
    EXPECT_EQ(FloatToPcm16(1.5F), 32767);
    EXPECT_EQ(FloatToPcm16(-1.5F), -32767);
    EXPECT_EQ(FloatToPcm16(-1e30F), -32767);
    EXPECT_EQ(FloatToPcm16(std::numeric_limits<float>::infinity()), 32767);
    EXPECT_EQ(FloatToPcm16(-std::numeric_limits<float>::infinity()), -32767);
}

TEST(PcmConversion, TurnsNanIntoSilence)
{
    EXPECT_EQ(FloatToPcm16(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(FloatToPcm16(-std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(CaptureValues, ReadWaitIsPlayingTimeOfRequestPlusTwoMilliseconds)
{
    EXPECT_EQ(ReadWait(3840).count(), 22);
    EXPECT_EQ(ReadWait(0).count(), 22);
    EXPECT_EQ(ReadWait(1).count(), 2);
    EXPECT_EQ(ReadWait(191).count(), 2);
    EXPECT_EQ(ReadWait(192).count(), 3);
    EXPECT_EQ(ReadWait(7680).count(), 42);
}

TEST(CaptureValues, ReadWaitWrapsAt32Bits)
{
    EXPECT_EQ(ReadWait(107374182).count(), 2147483640 / 3840 + 2);
    EXPECT_EQ(ReadWait(107374183).count(), -2147483636 / 3840 + 2);
    EXPECT_EQ(ReadWait(0xFFFFFFFF).count(), 2);
    EXPECT_EQ(ReadWait(0x80000000).count(), 2);
}

TEST(CaptureConversion, RoomForOutputIsRoundedUp)
{
    CaptureConverter converter;
    ASSERT_TRUE(converter.Open({44100, 2, AV_SAMPLE_FMT_FLT}, {48000, 2, AV_SAMPLE_FMT_FLT}));
    EXPECT_EQ(converter.OutputFrames(1), 2);
    EXPECT_EQ(converter.OutputFrames(441), 480);
    EXPECT_EQ(converter.OutputFrames(442), 482);
}

TEST(CaptureConversion, RoomForOutputIncludesBufferedInput)
{
    CaptureConverter converter;
    ASSERT_TRUE(converter.Open({16000, 1, AV_SAMPLE_FMT_FLT}, {48000, 2, AV_SAMPLE_FMT_FLT}));
    const std::vector<float> input(160);
    std::vector<float> output(size_t{2} * 10);
    auto *plane = reinterpret_cast<uint8_t *>(output.data());
    ASSERT_EQ(converter.OutputFrames(0), 0);
    ASSERT_EQ(converter.Convert(&plane, 10, reinterpret_cast<const uint8_t *>(input.data()), 160), 10);
    EXPECT_GE(converter.OutputFrames(0), 3 * 160 - 10) << "three frames for each one that is buffered";
    EXPECT_EQ(converter.OutputFrames(100), converter.OutputFrames(0) + 300);
}

TEST(CaptureConversion, ReopenedConverterForgetsOldFormatAndSound)
{
    CaptureConverter converter;
    ASSERT_TRUE(converter.Open({44100, 6, AV_SAMPLE_FMT_FLT}, {48000, 2, AV_SAMPLE_FMT_FLT}));
    const std::vector<float> loud(size_t{6} * 1000, 1.0F);
    std::vector<float> output(size_t{2} * 2000);
    auto *plane = reinterpret_cast<uint8_t *>(output.data());
    ASSERT_GT(converter.Convert(&plane, 2000, reinterpret_cast<const uint8_t *>(loud.data()), 1000), 0);
    ASSERT_TRUE(converter.Open({48000, 2, AV_SAMPLE_FMT_S16}, {48000, 2, AV_SAMPLE_FMT_S16}));
    EXPECT_EQ(converter.OutputFrames(0), 0);
    const std::vector<int16_t> input{100, -200, 300, -400};
    std::vector<int16_t> copied(4);
    plane = reinterpret_cast<uint8_t *>(copied.data());
    ASSERT_EQ(converter.Convert(&plane, 2, reinterpret_cast<const uint8_t *>(input.data()), 2), 2);
    EXPECT_EQ(copied, input);
}

TEST(CaptureValues, SampleFormatFollowsSampleSize)
{
    EXPECT_EQ(CaptureSampleFormat(8), AV_SAMPLE_FMT_U8);
    EXPECT_EQ(CaptureSampleFormat(16), AV_SAMPLE_FMT_S16);
    EXPECT_EQ(CaptureSampleFormat(32), AV_SAMPLE_FMT_FLT);
    for (const uint16_t bits : {0, 1, 20, 24, 64, 65535}) {
        EXPECT_EQ(CaptureSampleFormat(bits), AV_SAMPLE_FMT_NONE) << bits;
    }
}

TEST(CaptureValues, ChannelCodeFollowsChannelCount)
{
    EXPECT_EQ(ChannelCodeFor(1), 4U);
    EXPECT_EQ(ChannelCodeFor(2), 3U);
    for (const uint16_t channels : {0, 3, 6, 65535}) {
        EXPECT_EQ(ChannelCodeFor(channels), 0U) << channels;
    }
}

TEST(CaptureValues, HresultTextIsEightUpperCaseHexDigits)
{
    EXPECT_EQ(HresultText(S_OK), "0x00000000");
    EXPECT_EQ(HresultText(static_cast<HRESULT>(0x8889000AU)), "0x8889000A");
    EXPECT_EQ(HresultText(static_cast<HRESULT>(0x08890001)), "0x08890001");
}

} // namespace
