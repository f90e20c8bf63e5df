#include "check/portable/sound_timeline.h"

#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::check {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr uint32_t rate = 1000;          // 1 ms a frame
constexpr uint64_t millisecond = 10'000; // in units of 100 ns
constexpr float sound[] = {1, 2, 3, 4};

TEST(SoundTimeline, AppendsPacketsThatFollowEachOther)
{
    SoundTimeline timeline(rate, 2);
    timeline.Add({7, 500, 1, false, sound});
    timeline.Add({8, 500 + millisecond, 2, false, sound});
    EXPECT_THAT(timeline.Samples(), ElementsAre(1, 2, 1, 2, 3, 4));
    EXPECT_EQ(timeline.BeganAt(), 500U);
}

TEST(SoundTimeline, BeginsWithFirstPacketWhateverItsFlags)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({900, 9'000'000, 1, true, sound});
    EXPECT_THAT(timeline.Samples(), SizeIs(1));
}

TEST(SoundTimeline, FillsGapOfPositionWithSilence)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({0, 0, 1, false, sound});
    timeline.Add({3, 3 * millisecond, 1, false, sound + 1});
    EXPECT_THAT(timeline.Samples(), ElementsAre(1, 0, 0, 2));
}

TEST(SoundTimeline, FillsGapOfTimeWhereDeviceDoesNotCountSilence)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({0, 0, 1, false, sound});
    timeline.Add({1, 11 * millisecond, 1, true, sound + 1}); // 10 ms late
    EXPECT_THAT(timeline.Samples(), SizeIs(12));
    EXPECT_EQ(timeline.Samples()[11], 2);
}

TEST(SoundTimeline, PrefersJumpOfPositionToJitteringTime)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({0, 0, 1, false, sound});
    timeline.Add({4, 13 * millisecond, 1, true, sound + 1}); // 9 ms later than the position says
    EXPECT_THAT(timeline.Samples(), ElementsAre(1, 0, 0, 0, 2));
}

TEST(SoundTimeline, FillsGapOfTimeThatIsLongerThanJumpOfPosition)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({0, 0, 1, false, sound});
    timeline.Add({4, 104 * millisecond, 1, true, sound + 1});
    EXPECT_THAT(timeline.Samples(), SizeIs(105));
}

TEST(SoundTimeline, IgnoresInexactTimesOfPacketsThatFollowEachOther)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({0, 0, 1, false, sound});
    timeline.Add({1, 30 * millisecond, 1, false, sound + 1}); // late, without a discontinuity
    timeline.Add({2, 40 * millisecond, 1, true, sound + 2});  // 9 ms late
    EXPECT_THAT(timeline.Samples(), ElementsAre(1, 2, 3));
}

TEST(SoundTimeline, IgnoresWrongTimes)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({0, 0, 1, false, sound});
    timeline.Add({1, std::nullopt, 1, true, sound + 1});
    EXPECT_THAT(timeline.Samples(), ElementsAre(1, 2));
}

TEST(SoundTimeline, MeasuresGapFromLastTimeAndFramesSinceThen)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({0, 0, 1, false, sound});
    timeline.Add({21, std::nullopt, 40, false, nullptr}); // 20 frames are missing before it
    timeline.Add({61, 70 * millisecond, 1, true, sound}); // 9 ms late
    EXPECT_THAT(timeline.Samples(), SizeIs(62));
    timeline.Add({62, std::nullopt, 9, false, nullptr});
    timeline.Add({71, 90 * millisecond, 1, true, sound}); // 10 ms late
    EXPECT_THAT(timeline.Samples(), SizeIs(82));
}

TEST(SoundTimeline, BeginsAtFirstTimeMinusFramesBeforeIt)
{
    SoundTimeline timeline(rate, 2);
    timeline.Add({7, std::nullopt, 2, false, sound});
    EXPECT_EQ(timeline.BeganAt(), 0U);
    timeline.Add({9, 100 * millisecond, 1, true, sound});
    EXPECT_THAT(timeline.Samples(), SizeIs(6));
    EXPECT_EQ(timeline.BeganAt(), 98 * millisecond);
}

TEST(SoundTimeline, ReplacesSilentPacketsByZeros)
{
    SoundTimeline timeline(rate, 2);
    timeline.Add({0, 0, 2, false, nullptr});
    EXPECT_THAT(timeline.Samples(), ElementsAre(0, 0, 0, 0));
}

TEST(SoundTimeline, IgnoresImpossiblePositionsAndTimes)
{
    SoundTimeline timeline(rate, 1);
    timeline.Add({100, 100 * millisecond, 1, false, sound});
    timeline.Add({uint64_t{1} << 60, 101 * millisecond, 1, false, sound});
    timeline.Add({0, 102 * millisecond, 1, true, sound}); // the device started again
    EXPECT_THAT(timeline.Samples(), SizeIs(3));
}

} // namespace
} // namespace velto::check
