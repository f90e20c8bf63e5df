// The encoder's parameters, results and time stamps.
#include "codec/aac_encoder.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "aac_encoder_fixture.h"
#include "failing_throwing_new.h"

namespace {

using namespace velto_test;

// --- Initialize --------------------------------------------------------------------------------

TEST_F(AacEncoder, ReportsFrameLengthAndMaximumPacketSize)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(frameLength, 1024U);
    EXPECT_EQ(maxPacketSize, 1536U);
    ASSERT_TRUE(Open(MonoParam()));
    EXPECT_EQ(frameLength, 1024U);
    EXPECT_EQ(maxPacketSize, 768U);
    EXPECT_TRUE(Log().empty());
}

TEST_F(AacEncoder, NamesEachRefusedField)
{
    ExpectFieldRefused(&EncodeParam::sampleRateHz, L"sampleRateHz", {0U, 1U, 47999U, 192000U, 0xFFFFFFFFU});
    ExpectFieldRefused(&EncodeParam::channelCode, L"channelCode", {0U, 1U, 2U, 5U, 0xFFFFFFFFU});
    ExpectFieldRefused(&EncodeParam::bitRate, L"bitRate", {0U, 576001U, 0xFFFFFFFFU});
    ExpectFieldRefused(&EncodeParam::pcmFormat, L"pcmFormat", {0U, 2U, 0xFFFFFFFFU});
    ExpectFieldRefused(&EncodeParam::objectType, L"objectType", {0U, 1U, 5U, 0xFFFFFFFFU});
}

TEST_F(AacEncoder, LimitsBitRateByChannelCount)
{
    EncodeParam param = StereoParam();
    param.bitRate = 576000;
    EXPECT_TRUE(Open(param));
    param = MonoParam();
    param.bitRate = 288000;
    EXPECT_TRUE(Open(param));
    param.bitRate = 288001;
    ExpectRefused(param, L"Initialize: bitRate cannot be 288001");
}

TEST_F(AacEncoder, RefusesBitRateThatLeavesNoBandwidth)
{
    EncodeParam param = StereoParam();
    param.bitRate = 10;
    EXPECT_TRUE(Open(param));
    param.bitRate = 9;
    ExpectRefused(param, L"Initialize: bitRate cannot be 9");
    param = MonoParam();
    param.bitRate = 5;
    EXPECT_TRUE(Open(param));
    param.bitRate = 4;
    ExpectRefused(param, L"Initialize: bitRate cannot be 4");
}

TEST_F(AacEncoder, NamesFirstOfSeveralWrongFields)
{
    ExpectRefused({1, 1, 0, 0, 0}, L"Initialize: sampleRateHz cannot be 1");
    ExpectRefused({48000, 3, 0, 0, 0}, L"Initialize: bitRate cannot be 0");
}

TEST_F(AacEncoder, FailsToOpenWhenFFmpegCallFails)
{
    using fakeffmpeg::Call;
    for (const Call call : {Call::avcodec_alloc_context3, Call::av_frame_alloc, Call::av_packet_alloc}) {
        fakeffmpeg::Script().Fail(call, 0);
        ExpectRefused(StereoParam(),
                      L"Initialize: the encoder does not open, error " + std::to_wstring(AVERROR(ENOMEM)));
    }
    fakeffmpeg::Script().Fail(Call::avcodec_open2, -77);
    ExpectRefused(StereoParam(), L"Initialize: the encoder does not open, error -77");
    fakeffmpeg::Script().Fail(Call::avcodec_find_encoder, 0);
    ExpectRefused(StereoParam(), L"Initialize: this FFmpeg has no AAC encoder");
    EXPECT_TRUE(Open());
}

TEST_F(AacEncoder, FailsToOpenWithoutMemory)
{
    ASSERT_TRUE(Open()); // includes the first allocations of the fakes
    ClearLog();
    {
        const FailingThrowingNew noMemory(1);
        EXPECT_FALSE(Open());
        EXPECT_TRUE(noMemory.HasFailed());
    }
    ExpectLine(errorLevel,
               L"Initialize: the encoder does not open, error " + std::to_wstring(AVERROR(ENOMEM)), "?");
    EXPECT_TRUE(Open());
}

TEST_F(AacEncoder, OpensFFmpegWithRateProfileAndSilentLog)
{
    for (const EncodeParam &param : {StereoParam(), MonoParam()}) {
        ASSERT_TRUE(Open(param));
        const fakeffmpeg::OpenedCodec opened = fakeffmpeg::LastOpenedCodec();
        EXPECT_EQ(opened.sampleRateHz, 48000);
        EXPECT_EQ(opened.channels, static_cast<int>(ChannelCountOf(param.channelCode)));
        EXPECT_EQ(opened.bitRate, param.bitRate);
        EXPECT_EQ(opened.profile, FF_PROFILE_AAC_LOW);
        EXPECT_EQ(opened.timeBase.num, 1);
        EXPECT_EQ(opened.timeBase.den, 48000);
        EXPECT_EQ(opened.logLevelOffset, AV_LOG_INFO) << "no message reaches the console";
    }
}

TEST_F(AacEncoder, ReopensWithOtherChannelCount)
{
    ASSERT_TRUE(Open(MonoParam()));
    EXPECT_LT(Encode(), 0); // a stereo frame for a mono encoder
    ASSERT_TRUE(Open(StereoParam()));
    ExpectWorks();
    ASSERT_TRUE(Open(StereoParam()));
    ExpectWorks(); // the second opening starts a new stream
}

TEST_F(AacEncoder, ClosesWhenParametersAreRefused)
{
    ASSERT_TRUE(Open());
    ExpectRefused({48000, 3, 128000, 1, 3}, L"Initialize: objectType cannot be 3");
    ASSERT_TRUE(Open());
    ExpectWorks();
}

// --- Encode ------------------------------------------------------------------------------------

TEST_F(AacEncoder, MapsLowestSampleToMinusOne)
{
    ASSERT_TRUE(Open());
    const std::array<int16_t, 4> left{-32768, 32767, 16384, 1};
    for (size_t i = 0; i < left.size(); ++i) {
        frame.samples[2 * i] = left[i];
    }
    Encode();
    const std::vector<float> sent = fakeffmpeg::SentSamples();
    ASSERT_EQ(sent.size(), aacFrameLength);
    EXPECT_EQ(std::vector(sent.begin(), sent.begin() + 4),
              (std::vector{-1.0F, 1.0F - 1.0F / 32768, 0.5F, 1.0F / 32768}));
}

TEST_F(AacEncoder, ReturnsFirstPacketWithSecondFrame)
{
    ASSERT_TRUE(Open());
    packet.size = 5;
    EXPECT_EQ(Encode(), 0);
    EXPECT_EQ(packet.size, 0U);
    const int32_t bytes = Encode();
    EXPECT_GT(bytes, 0);
    EXPECT_EQ(packet.size, static_cast<uint32_t>(bytes));
}

TEST_F(AacEncoder, DrainsRemainingPacketsThenReturnsZero)
{
    ASSERT_TRUE(Open());
    for (int i = 0; i < 5; ++i) {
        ASSERT_GE(Encode(), 0);
    }
    int packets = 4;
    while (Drain() > 0) {
        ++packets;
    }
    EXPECT_EQ(packets, 6); // the priming and five frames
    EXPECT_EQ(Drain(), 0);
}

TEST_F(AacEncoder, ReturnsZeroWhenDrainedWithoutFrames)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(Drain(), 0);
    EXPECT_EQ(Drain(), 0);
}

TEST_F(AacEncoder, RefusesFramesOnceDrainingBegan)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(Encode(), 0);
    EXPECT_GT(Drain(), 0);
    EXPECT_EQ(Encode(), AVERROR_EOF);
    EXPECT_EQ(packet.size, 0U);
    while (Drain() > 0) {
    }
    EXPECT_EQ(Encode(), AVERROR_EOF);
    ASSERT_TRUE(Open());
    ExpectWorks();
}

TEST_F(AacEncoder, RefusesFramesAfterShortFrame)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(Encode(), 0);
    frame.fillCount = 1023;
    EXPECT_GT(Encode(), 0);
    EXPECT_EQ(Encode(), AVERROR_EOF);
    frame.fillCount = 1024;
    EXPECT_EQ(Encode(), AVERROR_EOF);
    EXPECT_GE(Drain(), 0);
}

TEST_F(AacEncoder, CountsTimeStampsInSamplesFromMinusOneFrame)
{
    const Pcm pcm(size_t{4 * aacFrameLength} * 2 + 100, 0);
    const std::vector<EncodedUnit> units = EncodePcm(StereoParam(), pcm);
    ASSERT_EQ(units.size(), 6U);
    for (size_t i = 0; i < units.size(); ++i) {
        EXPECT_EQ(units[i].timeStamp, (static_cast<int64_t>(i) - 1) * aacFrameLength);
    }
}

TEST_F(AacEncoder, RestartsTimeStampsWhenReopened)
{
    for (int start = 0; start < 2; ++start) {
        ASSERT_TRUE(Open());
        ExpectWorks();
        EXPECT_EQ(packet.timeStamp, -1024);
        EXPECT_GT(Encode(), 0);
        EXPECT_EQ(packet.timeStamp, 0);
    }
}

} // namespace
