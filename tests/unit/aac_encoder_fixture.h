// An encoder with a packet and a frame that suit it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aac_round_trip.h"
#include "codec/aac_encoder.h"
#include "log_lines.h"
#include "tests/fakes/fake_ffmpeg.h"

namespace velto_test {

class AacEncoder : public ::testing::Test {
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

} // namespace velto_test
