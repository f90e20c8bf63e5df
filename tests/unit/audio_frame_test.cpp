#include "codec/audio_frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace {

TEST(AudioFrame, HasNoBufferAfterConstruction)
{
    const AudioFrame frame;
    EXPECT_EQ(frame.samples, nullptr);
    EXPECT_EQ(frame.FrameLength(), 0U);
    EXPECT_EQ(frame.fillCount, 0U);
    EXPECT_EQ(frame.channelCount, 0U);
}

TEST(AudioFrame, DerivesChannelCountFromChannelCode)
{
    AudioFrame frame;
    ASSERT_TRUE(frame.AllocBuffer(48000, 1024, 3, PCMFormat::S16));
    EXPECT_EQ(frame.channelCount, 2U);
    EXPECT_EQ(frame.FrameLength(), 1024U);
    ASSERT_TRUE(frame.AllocBuffer(44100, 512, 4, PCMFormat::S16));
    EXPECT_EQ(frame.channelCount, 1U);
    EXPECT_EQ(frame.FrameLength(), 512U);
}

TEST(AudioFrame, IsSilentAndEmptyAfterEachAllocation)
{
    AudioFrame frame;
    for (const uint32_t length : {1024U, 2048U, 16U, 1024U}) {
        ASSERT_TRUE(frame.AllocBuffer(48000, length, 3, PCMFormat::S16));
        EXPECT_EQ(frame.fillCount, 0U);
        EXPECT_TRUE(std::all_of(frame.samples, frame.samples + length * 2, [](int16_t s) { return s == 0; }));
        // AddressSanitizer reports a write past the end.
        std::fill_n(frame.samples, length * 2, std::numeric_limits<int16_t>::max());
        frame.fillCount = length;
    }
}

TEST(AudioFrame, HasNoBufferAfterRefusedAllocation)
{
    struct Refused {
        uint32_t length;
        uint32_t code;
        PCMFormat format;
    };
    for (const Refused &refused : {Refused{1024, 0, PCMFormat::S16}, Refused{1024, 1, PCMFormat::S16},
                                   Refused{1024, 2, PCMFormat::S16}, Refused{0, 3, PCMFormat::S16},
                                   Refused{0xFFFFFFFF, 3, PCMFormat::S16}, Refused{1024, 3, PCMFormat{0}},
                                   Refused{1024, 3, PCMFormat{2}}}) {
        AudioFrame frame;
        ASSERT_TRUE(frame.AllocBuffer(48000, 1024, 3, PCMFormat::S16));
        EXPECT_FALSE(frame.AllocBuffer(48000, refused.length, refused.code, refused.format));
        EXPECT_EQ(frame.samples, nullptr);
        EXPECT_EQ(frame.FrameLength(), 0U);
        EXPECT_EQ(frame.channelCount, 0U);
    }
}

TEST(AudioFrame, CanBeReleasedTwiceAndAllocatedAgain)
{
    AudioFrame frame;
    frame.ReleaseBuffer();
    ASSERT_TRUE(frame.AllocBuffer(48000, 1024, 3, PCMFormat::S16));
    frame.fillCount = 7;
    frame.ReleaseBuffer();
    frame.ReleaseBuffer();
    EXPECT_EQ(frame.samples, nullptr);
    EXPECT_EQ(frame.fillCount, 0U);
    EXPECT_TRUE(frame.AllocBuffer(48000, 1024, 3, PCMFormat::S16));
}

} // namespace
