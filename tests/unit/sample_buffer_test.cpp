#include "render/sample_buffer.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "reset.h"
#include "tests/fakes/fake_ffmpeg.h"

namespace {

using fakeffmpeg::Call;
using velto::SampleBuffer;

constexpr int32_t stereo = 2;
constexpr int32_t frames = 1024;

class SampleBufferTest : public ::testing::Test {
protected:
    SampleBufferTest()
    {
        fakes::ResetAll();
        buffer.Allocate(stereo, frames, AV_SAMPLE_FMT_S16);
    }

    static int Reallocations() { return fakeffmpeg::Script().Count(Call::av_samples_alloc); }

    SampleBuffer buffer;
};

TEST_F(SampleBufferTest, IsEmptyWhenCreatedAndAfterFree)
{
    SampleBuffer other;
    EXPECT_EQ(other.CapacityFrames(), 0);
    EXPECT_FALSE(other.HasPlanes());
    buffer.Free();
    EXPECT_EQ(buffer.CapacityFrames(), 0);
    EXPECT_FALSE(buffer.HasPlanes());
}

TEST_F(SampleBufferTest, ReservesSmallerFramesWithoutAllocation)
{
    EXPECT_TRUE(buffer.Reserve(stereo, frames, AV_SAMPLE_FMT_U8));
    EXPECT_TRUE(buffer.Reserve(stereo, frames - 1, AV_SAMPLE_FMT_S16));
    EXPECT_EQ(Reallocations(), 0);
}

TEST_F(SampleBufferTest, AllocatesOnceForLargerFrames)
{
    EXPECT_TRUE(buffer.Reserve(stereo, frames, AV_SAMPLE_FMT_S32));
    EXPECT_TRUE(buffer.Reserve(stereo, frames, AV_SAMPLE_FMT_S32));
    EXPECT_EQ(Reallocations(), 1);
}

TEST_F(SampleBufferTest, KeepsCapacityWhenMoved)
{
    const uint8_t *samples = buffer.Samples();
    SampleBuffer other(std::move(buffer));
    SampleBuffer third;
    third = std::move(other);
    EXPECT_EQ(third.CapacityFrames(), frames);
    EXPECT_TRUE(third.Reserve(stereo, frames, AV_SAMPLE_FMT_S16));
    EXPECT_EQ(third.Samples(), samples);
    EXPECT_EQ(Reallocations(), 0);
}

TEST_F(SampleBufferTest, RetriesFailedGrowthForFramesThatFittedBefore)
{
    fakeffmpeg::Script().Fail(Call::av_samples_alloc, AVERROR(ENOMEM));
    EXPECT_FALSE(buffer.Reserve(stereo, 2 * frames, AV_SAMPLE_FMT_S16));
    EXPECT_EQ(buffer.Samples(), nullptr);
    EXPECT_TRUE(buffer.Reserve(stereo, frames, AV_SAMPLE_FMT_S16));
    EXPECT_NE(buffer.Samples(), nullptr);
}

TEST_F(SampleBufferTest, IsEmptyAfterFailedAllocation)
{
    fakeffmpeg::Script().Fail(Call::av_samples_alloc_array_and_samples, AVERROR(ENOMEM));
    buffer.Allocate(stereo, frames, AV_SAMPLE_FMT_S16);
    EXPECT_FALSE(buffer.HasPlanes());
    EXPECT_EQ(buffer.CapacityFrames(), 0);
    EXPECT_TRUE(buffer.Reserve(stereo, frames, AV_SAMPLE_FMT_S16)) << "allocates again";
    EXPECT_EQ(buffer.CapacityFrames(), frames);
}

TEST_F(SampleBufferTest, AcceptsAllocationsThatReturnZero)
{
    fakeffmpeg::Script().Fail(Call::av_samples_alloc_array_and_samples, 0);
    buffer.Allocate(stereo, frames, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(buffer.CapacityFrames(), frames);
    fakeffmpeg::Script().Fail(Call::av_samples_alloc, 0);
    EXPECT_TRUE(buffer.Reserve(stereo, 2 * frames, AV_SAMPLE_FMT_S16));
    EXPECT_EQ(buffer.CapacityFrames(), 2 * frames);
}

TEST_F(SampleBufferTest, AllocatesWithDefaultAlignmentAndGrowsUnaligned)
{
    EXPECT_TRUE(buffer.Reserve(stereo, 2 * frames, AV_SAMPLE_FMT_S16));
    EXPECT_EQ(fakeffmpeg::Alignments(), (std::vector<int>{0, 1}));
}

} // namespace
