// What the encoder promises to its caller: parameters, results, errors, time stamps.
#include "codec/aac_encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "aac_round_trip.h"
#include "log_lines.h"
#include "tests/fakes/fake_ffmpeg.h"

namespace {

using namespace velto_test;

class Encoder : public ::testing::Test {
protected:
    void SetUp() override
    {
        Recorded().Clear();
        fakeffmpeg::Script().Reset();
        ASSERT_TRUE(packet.AllocBuffer(1536, false));
        ASSERT_TRUE(frame.AllocBuffer(48000, aacFrameLength, 3, PCMFormat::S16));
        frame.fillCount = aacFrameLength;
    }
    void TearDown() override { fakeffmpeg::Script().Reset(); }

    bool Open(const EncodeParam &param = StereoParam())
    {
        return encoder.Initialize(param, frameLength, maxPacketSize);
    }
    int32_t Encode() { return encoder.Encode(&frame, &packet); }
    int32_t Drain() { return encoder.Encode(nullptr, &packet); }

    // Two frames in, the first packet out.
    void ExpectWorks()
    {
        EXPECT_EQ(Encode(), 0);
        EXPECT_GT(Encode(), 0);
    }

    void ExpectRefused(const EncodeParam &param, const std::wstring &line)
    {
        Recorded().Clear();
        frameLength = maxPacketSize = 99;
        EXPECT_FALSE(Open(param));
        EXPECT_EQ(frameLength, 0U);
        EXPECT_EQ(maxPacketSize, 0U);
        ExpectLine(LOG_LEVEL_ERROR, line, "?"); // to the library's own channel alone
        EXPECT_EQ(Recorded().Channels(), std::vector<std::string>{"AACEncoder"});
        EXPECT_LT(Encode(), 0);
    }

    AACEncoder encoder;
    AVEncodePacket packet;
    AudioFrame frame;
    uint32_t frameLength = 0;
    uint32_t maxPacketSize = 0;
};

// --- Initialize --------------------------------------------------------------------------------

TEST_F(Encoder, GivesTheFrameLengthAndTheRoomOfAPacket)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(frameLength, 1024U);
    EXPECT_EQ(maxPacketSize, 1536U);
    ASSERT_TRUE(Open(MonoParam()));
    EXPECT_EQ(frameLength, 1024U);
    EXPECT_EQ(maxPacketSize, 768U);
    EXPECT_TRUE(Recorded().Entries().empty());
}

TEST_F(Encoder, RefusesEachFieldByItsName)
{
    EncodeParam param = StereoParam();
    for (const uint32_t rateHz : {0U, 1U, 47999U, 192000U, 0xFFFFFFFFU}) {
        param.sampleRateHz = rateHz;
        ExpectRefused(param, L"Initialize: sampleRateHz cannot be " + std::to_wstring(rateHz));
    }
    param = StereoParam();
    for (const uint32_t code : {0U, 1U, 2U, 5U, 0xFFFFFFFFU}) {
        param.channelCode = code;
        ExpectRefused(param, L"Initialize: channelCode cannot be " + std::to_wstring(code));
    }
    param = StereoParam();
    for (const uint32_t bitRate : {0U, 576001U, 0xFFFFFFFFU}) {
        param.bitRate = bitRate;
        ExpectRefused(param, L"Initialize: bitRate cannot be " + std::to_wstring(bitRate));
    }
    param = StereoParam();
    for (const uint32_t format : {0U, 2U, 0xFFFFFFFFU}) {
        param.pcmFormat = format;
        ExpectRefused(param, L"Initialize: pcmFormat cannot be " + std::to_wstring(format));
    }
    param = StereoParam();
    for (const uint32_t type : {0U, 1U, 5U, 0xFFFFFFFFU}) {
        param.objectType = type;
        ExpectRefused(param, L"Initialize: objectType cannot be " + std::to_wstring(type));
    }
}

TEST_F(Encoder, TheHighestBitRateIsThatOfTheChannels)
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

TEST_F(Encoder, NamesTheFirstOfSeveralWrongFields)
{
    ExpectRefused({1, 1, 0, 0, 0}, L"Initialize: sampleRateHz cannot be 1");
    ExpectRefused({48000, 3, 0, 0, 0}, L"Initialize: bitRate cannot be 0");
}

TEST_F(Encoder, DoesNotOpenWithoutWhatItNeedsOfFFmpeg)
{
    using fakeffmpeg::Call;
    for (const Call call : {Call::avcodec_alloc_context3, Call::av_frame_alloc, Call::av_packet_alloc}) {
        fakeffmpeg::Script().Fail(call, 0);
        ExpectRefused(StereoParam(),
                      L"Initialize: the encoder does not open, error " + std::to_wstring(AVERROR(ENOMEM)));
    }
    fakeffmpeg::Script().Fail(Call::avcodec_open2, -77);
    ExpectRefused(StereoParam(), L"Initialize: the encoder does not open, error -77");
    EXPECT_TRUE(Open());
}

TEST_F(Encoder, OpensAgainForOtherChannels)
{
    ASSERT_TRUE(Open(MonoParam()));
    EXPECT_LT(Encode(), 0); // two channels for one
    ASSERT_TRUE(Open(StereoParam()));
    ExpectWorks();
    ASSERT_TRUE(Open(StereoParam()));
    ExpectWorks(); // starts from the beginning
}

TEST_F(Encoder, IsClosedByParametersThatItRefuses)
{
    ASSERT_TRUE(Open());
    ExpectRefused({48000, 3, 128000, 1, 3}, L"Initialize: objectType cannot be 3");
    ASSERT_TRUE(Open());
    ExpectWorks();
}

// --- Encode ------------------------------------------------------------------------------------

TEST_F(Encoder, FirstPacketComesWithTheSecondFrame)
{
    ASSERT_TRUE(Open());
    packet.size = 5;
    EXPECT_EQ(Encode(), 0);
    EXPECT_EQ(packet.size, 0U);
    const int32_t bytes = Encode();
    EXPECT_GT(bytes, 0);
    EXPECT_EQ(packet.size, static_cast<uint32_t>(bytes));
}

TEST_F(Encoder, DrainingGivesWhatIsLeftThenZero)
{
    ASSERT_TRUE(Open());
    for (int i = 0; i < 5; ++i) {
        ASSERT_GE(Encode(), 0);
    }
    int packets = 4;
    while (Drain() > 0) {
        ++packets;
    }
    EXPECT_EQ(packets, 6); // five frames and what stands before the sound
    EXPECT_EQ(Drain(), 0);
}

TEST_F(Encoder, DrainingWithoutAFrameGivesZero)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(Drain(), 0);
    EXPECT_EQ(Drain(), 0);
}

TEST_F(Encoder, TakesNoFrameOnceDrainingBegan)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(Encode(), 0);
    EXPECT_GT(Drain(), 0);
    EXPECT_LT(Encode(), 0);
    EXPECT_EQ(packet.size, 0U);
    while (Drain() > 0) {
    }
    EXPECT_LT(Encode(), 0);
    ASSERT_TRUE(Open());
    ExpectWorks();
}

TEST_F(Encoder, TakesNoFrameAfterAShortOne)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(Encode(), 0);
    frame.fillCount = 1023;
    EXPECT_GT(Encode(), 0);
    EXPECT_LT(Encode(), 0);
    frame.fillCount = 1024;
    EXPECT_LT(Encode(), 0);
    EXPECT_GE(Drain(), 0);
}

TEST_F(Encoder, TimeStampsCountSamplesFromWhatStandsBeforeTheSound)
{
    const Pcm pcm(size_t{4 * aacFrameLength} * 2 + 100, 0);
    const std::vector<EncodedUnit> units = EncodePcm(StereoParam(), pcm);
    ASSERT_EQ(units.size(), 6U);
    for (size_t i = 0; i < units.size(); ++i) {
        EXPECT_EQ(units[i].timeStamp, (static_cast<int64_t>(i) - 1) * aacFrameLength);
    }
}

TEST_F(Encoder, TimeStampsStartAgainWithANewStart)
{
    for (int start = 0; start < 2; ++start) {
        ASSERT_TRUE(Open());
        ExpectWorks();
        EXPECT_EQ(packet.timeStamp, -1024);
        EXPECT_GT(Encode(), 0);
        EXPECT_EQ(packet.timeStamp, 0);
    }
}

// --- Wrong frames and packets ------------------------------------------------------------------

TEST_F(Encoder, RefusesAPacketWithoutEnoughRoomAndGoesOn)
{
    ASSERT_TRUE(Open());
    EXPECT_LT(encoder.Encode(&frame, nullptr), 0);
    AVEncodePacket other;
    EXPECT_LT(encoder.Encode(&frame, &other), 0);
    ASSERT_TRUE(other.AllocBuffer(1535, false));
    EXPECT_LT(encoder.Encode(&frame, &other), 0);
    EXPECT_LT(encoder.Encode(nullptr, &other), 0); // nor did draining begin
    ExpectWorks();
}

TEST_F(Encoder, RefusesFramesThatDoNotFitAndGoesOn)
{
    ASSERT_TRUE(Open());
    frame.fillCount = 0;
    EXPECT_LT(Encode(), 0);
    frame.fillCount = 1025;
    EXPECT_LT(Encode(), 0);
    frame.fillCount = 0xFFFFFFFF;
    EXPECT_LT(Encode(), 0);
    frame.fillCount = aacFrameLength;
    for (const uint32_t channels : {0U, 1U, 3U}) {
        frame.channelCount = channels;
        EXPECT_LT(Encode(), 0);
    }
    frame.channelCount = 2;
    ExpectWorks();
}

TEST_F(Encoder, RefusesAFrameWithoutABuffer)
{
    ASSERT_TRUE(Open());
    frame.ReleaseBuffer();
    frame.channelCount = 2;
    frame.fillCount = 1;
    EXPECT_LT(Encode(), 0);
    AudioFrame untouched;
    EXPECT_LT(encoder.Encode(&untouched, &packet), 0);
}

TEST_F(Encoder, HoldsTheFillCountAgainstALengthThatChanged)
{
    ASSERT_TRUE(Open());
    ASSERT_TRUE(frame.AllocBuffer(48000, 2048, 3, PCMFormat::S16));
    frame.fillCount = 2048; // in its own buffer, but not the encoder's
    EXPECT_LT(Encode(), 0);
    frame.fillCount = 1024;
    EXPECT_EQ(Encode(), 0);
    ASSERT_TRUE(frame.AllocBuffer(48000, 512, 3, PCMFormat::S16));
    frame.fillCount = 513; // in the encoder's, but not in its own buffer
    EXPECT_LT(Encode(), 0);
}

TEST_F(Encoder, EveryCallWithoutAnOpenEncoderIsAnError)
{
    EXPECT_LT(Encode(), 0);
    EXPECT_LT(Drain(), 0);
    EXPECT_LT(encoder.Encode(nullptr, nullptr), 0);
    ASSERT_TRUE(Open());
    ExpectWorks();
    encoder.Close();
    encoder.Close();
    EXPECT_LT(Encode(), 0);
    EXPECT_LT(Drain(), 0);
}

// --- The decoder's configuration ---------------------------------------------------------------

TEST_F(Encoder, ConfigurationTellsObjectTypeRateAndChannels)
{
    std::array<uint8_t, 8> config{};
    uint32_t length = 0;
    ASSERT_TRUE(Open(StereoParam()));
    ASSERT_TRUE(encoder.GetDecoderSpecificInfo(config.data(), config.size(), length));
    ASSERT_GE(length, 2U);
    EXPECT_EQ(config[0], 0x11); // 00010 001 1 0010 000: AAC-LC, 48000 Hz, two channels
    EXPECT_EQ(config[1], 0x90);
    ASSERT_TRUE(Open(MonoParam()));
    ASSERT_TRUE(encoder.GetDecoderSpecificInfo(config.data(), config.size(), length));
    EXPECT_EQ(config[0], 0x11);
    EXPECT_EQ(config[1], 0x88);
}

TEST_F(Encoder, ConfigurationNeedsRoomAndAnOpenEncoder)
{
    std::array<uint8_t, 8> config{};
    uint32_t length = 9;
    EXPECT_FALSE(encoder.GetDecoderSpecificInfo(config.data(), config.size(), length));
    EXPECT_EQ(length, 0U);
    ASSERT_TRUE(Open());
    ASSERT_TRUE(encoder.GetDecoderSpecificInfo(config.data(), config.size(), length));
    const uint32_t needed = length;
    EXPECT_TRUE(encoder.GetDecoderSpecificInfo(config.data(), needed, length));
    EXPECT_FALSE(encoder.GetDecoderSpecificInfo(config.data(), needed - 1, length));
    EXPECT_EQ(length, 0U);
    EXPECT_FALSE(encoder.GetDecoderSpecificInfo(nullptr, 8, length));
    encoder.Close();
    EXPECT_FALSE(encoder.GetDecoderSpecificInfo(config.data(), config.size(), length));
}

} // namespace
