#include "codec/audio_frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "failing_throwing_new.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

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

TEST(AudioFrame, AllocatesUpTo1048576SamplesPerChannel)
{
    AudioFrame frame;
    EXPECT_TRUE(frame.AllocBuffer(48000, 1048576, 4, PCMFormat::S16));
    EXPECT_FALSE(frame.AllocBuffer(48000, 1048577, 4, PCMFormat::S16));
}

TEST(AudioFrame, HasNoBufferWithoutMemory)
{
    AudioFrame frame;
    {
        const velto_test::FailingThrowingNew noMemory(1);
        EXPECT_FALSE(frame.AllocBuffer(48000, 1024, 3, PCMFormat::S16));
    }
    EXPECT_EQ(frame.samples, nullptr);
    EXPECT_EQ(frame.FrameLength(), 0U);
    EXPECT_EQ(frame.channelCount, 0U);
    EXPECT_TRUE(frame.AllocBuffer(48000, 1024, 3, PCMFormat::S16));
}

#ifdef __SANITIZE_ADDRESS__
TEST(AudioFrame, FreesSamplesWhenReleased)
{
    AudioFrame frame;
    ASSERT_TRUE(frame.AllocBuffer(48000, 1024, 3, PCMFormat::S16));
    const int16_t *samples = frame.samples;
    EXPECT_FALSE(__asan_address_is_poisoned(samples));
    frame.ReleaseBuffer();
    EXPECT_TRUE(__asan_address_is_poisoned(samples));
}
#endif

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
