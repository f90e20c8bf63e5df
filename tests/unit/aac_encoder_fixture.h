// Fixture of the encoder's tests: an encoder, a packet and a frame of the sizes that the encoder needs.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aac_round_trip.h"
#include "codec/aac_encoder.h"
#include "log_lines.h"
#include "reset.h"
#include "tests/fakes/fake_ffmpeg.h"

namespace velto_test {

class AacEncoder : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::ResetAll();
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

    // Encodes two frames. The encoder returns its first packet with the second one.
    void ExpectWorks()
    {
        EXPECT_EQ(Encode(), 0);
        EXPECT_GT(Encode(), 0);
    }

    void ExpectRefused(const EncodeParam &param, const std::wstring &line)
    {
        ClearLog();
        frameLength = maxPacketSize = 99;
        EXPECT_FALSE(Open(param));
        EXPECT_EQ(frameLength, 0U);
        EXPECT_EQ(maxPacketSize, 0U);
        ExpectLine(errorLevel, line, "?"); // written to the library's own channel only
        EXPECT_EQ(Recorded().Channels(), std::vector<std::string>{"AACEncoder"});
        EXPECT_LT(Encode(), 0);
    }

    void ExpectFieldRefused(uint32_t EncodeParam::*field, const std::wstring &name,
                            const std::vector<uint32_t> &values)
    {
        for (const uint32_t value : values) {
            EncodeParam param = StereoParam();
            param.*field = value;
            ExpectRefused(param, L"Initialize: " + name + L" cannot be " + std::to_wstring(value));
        }
    }

    AACEncoder encoder;
    AVEncodePacket packet;
    AudioFrame frame;
    uint32_t frameLength = 0;
    uint32_t maxPacketSize = 0;
};

} // namespace velto_test
