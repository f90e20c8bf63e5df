// Frames, packets and calls that the encoder refuses, and its decoder info.
#include "codec/aac_encoder.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>

#include "aac_encoder_fixture.h"

namespace {

using namespace velto_test;

constexpr int32_t invalid = AVERROR(EINVAL);

TEST_F(AacEncoder, RefusesMissingOrTooSmallPacketAndContinues)
{
    ASSERT_TRUE(Open());
    EXPECT_EQ(encoder.Encode(&frame, nullptr), invalid);
    AVEncodePacket other;
    EXPECT_EQ(encoder.Encode(&frame, &other), invalid);
    ASSERT_TRUE(other.AllocBuffer(1535, false));
    EXPECT_EQ(encoder.Encode(&frame, &other), invalid);
    EXPECT_EQ(encoder.Encode(nullptr, &other), invalid); // refused, so draining does not start
    ExpectWorks();
}

TEST_F(AacEncoder, RefusesFramesOfWrongSizeOrChannelsAndContinues)
{
    ASSERT_TRUE(Open());
    frame.fillCount = 0;
    EXPECT_EQ(Encode(), invalid);
    frame.fillCount = 1025;
    EXPECT_EQ(Encode(), invalid);
    frame.fillCount = 0xFFFFFFFF;
    EXPECT_EQ(Encode(), invalid);
    frame.fillCount = aacFrameLength;
    for (const uint32_t channels : {0U, 1U, 3U}) {
        frame.channelCount = channels;
        EXPECT_EQ(Encode(), invalid);
    }
    frame.channelCount = 2;
    ExpectWorks();
}

TEST_F(AacEncoder, DropsPacketAboveMaximumSizeAndContinues)
{
    ASSERT_TRUE(Open());
    ExpectWorks();
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_receive_packet, 1537);
    EXPECT_EQ(Encode(), AVERROR(ERANGE));
    EXPECT_EQ(packet.size, 0U);
    ExpectLine(errorLevel, L"Encode: a packet of 1537 bytes exceeds 1536", "?");
    EXPECT_GT(Encode(), 0);
    EXPECT_EQ(packet.timeStamp, 1024); // follows the dropped packet
}

TEST_F(AacEncoder, ReturnsPacketOfExactlyMaximumSize)
{
    ASSERT_TRUE(Open());
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_receive_packet, 1536);
    EXPECT_EQ(Encode(), 1536);
    EXPECT_EQ(packet.size, 1536U);
}

TEST_F(AacEncoder, ReturnsFFmpegErrorAndContinues)
{
    using fakeffmpeg::Call;
    ASSERT_TRUE(Open());
    fakeffmpeg::Script().Fail(Call::avcodec_send_frame, -77);
    EXPECT_EQ(Encode(), -77);
    ExpectWorks();
    fakeffmpeg::Script().Fail(Call::av_frame_make_writable, -76);
    EXPECT_EQ(Encode(), -76);
    EXPECT_GT(Encode(), 0);
    fakeffmpeg::Script().Fail(Call::avcodec_receive_packet, -78);
    EXPECT_EQ(Encode(), -78);
    EXPECT_EQ(packet.size, 0U);
    EXPECT_GT(Encode(), 0);
}

TEST_F(AacEncoder, RefusesFrameWithoutBuffer)
{
    ASSERT_TRUE(Open());
    frame.ReleaseBuffer();
    frame.channelCount = 2;
    frame.fillCount = 1;
    EXPECT_EQ(Encode(), invalid);
    AudioFrame untouched;
    EXPECT_EQ(encoder.Encode(&untouched, &packet), invalid);
}

TEST_F(AacEncoder, RefusesFillCountAboveFrameOrBufferLength)
{
    ASSERT_TRUE(Open());
    ASSERT_TRUE(frame.AllocBuffer(48000, 2048, 3, PCMFormat::S16));
    frame.fillCount = 2048; // fits the frame's buffer, but exceeds the encoder's frame length
    EXPECT_EQ(Encode(), invalid);
    frame.fillCount = 1024;
    EXPECT_EQ(Encode(), 0);
    ASSERT_TRUE(frame.AllocBuffer(48000, 512, 3, PCMFormat::S16));
    frame.fillCount = 513; // below the encoder's frame length, but exceeds the frame's buffer
    EXPECT_EQ(Encode(), invalid);
}

TEST_F(AacEncoder, FailsToEncodeOrDrainWhileNotOpen)
{
    EXPECT_EQ(Encode(), invalid);
    EXPECT_EQ(Drain(), invalid);
    EXPECT_EQ(encoder.Encode(nullptr, nullptr), invalid);
    ASSERT_TRUE(Open());
    ExpectWorks();
    encoder.Close();
    encoder.Close();
    EXPECT_EQ(Encode(), invalid);
    EXPECT_EQ(Drain(), invalid);
}

// --- The decoder info --------------------------------------------------------------------------

TEST_F(AacEncoder, DescribesTypeRateAndChannelsInDecoderInfo)
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

TEST_F(AacEncoder, RefusesDecoderInfoWithoutRoomOrWhileNotOpen)
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
