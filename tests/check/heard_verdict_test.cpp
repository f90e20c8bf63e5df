#include "check/portable/heard_verdict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::check {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint32_t frames = 200;

// A faultless hearing.
HeardWatermark Good()
{
    HeardWatermark heard;
    heard.sound.seconds = 5;
    heard.sound.delayMs = 250;
    heard.sound.speed = 1.0001;
    heard.sound.levelDb = -0.1;
    heard.sound.framesSent = frames;
    heard.sound.framesHeard = frames;
    heard.sound.envelope = {0, 0.35F, 0};
    heard.channels = HeardChannels::KEPT;
    return heard;
}

const HeardConditions full{100, {0}};

std::vector<std::string> Broken(const HeardWatermark &heard, const HeardConditions &conditions = full)
{
    std::vector<std::string> clauses;
    for (const BrokenClause &broken : VerdictOn(heard, conditions).broken) {
        clauses.push_back(broken.clause);
    }
    return clauses;
}

TEST(HeardVerdict, AcceptsFaultlessSound)
{
    EXPECT_THAT(Broken(Good()), IsEmpty());
    EXPECT_THAT(VerdictOn(Good(), full).warnings, IsEmpty());
}

TEST(HeardVerdict, FindsOneBrokenClauseInSilence)
{
    HeardWatermark heard;
    heard.sound.framesSent = frames;
    heard.sound.framesMissing = frames;
    heard.sound.envelope = {0, 0.0005F};
    EXPECT_THAT(Broken(heard), ElementsAre("SPK-16"));
    heard.sound.envelope = {};
    EXPECT_THAT(Broken(heard), ElementsAre("SPK-16"));
}

TEST(HeardVerdict, DistinguishesWrongSoundFromSilence)
{
    HeardWatermark heard;
    heard.sound.framesSent = frames;
    heard.sound.framesMissing = frames;
    heard.sound.envelope = {0, 0.1F};
    EXPECT_THAT(Broken(heard), ElementsAre("SPK-3"));
}

TEST(HeardVerdict, FindsBrokenSequences)
{
    for (const auto fault :
         {&HeardSound::framesMissing, &HeardSound::framesRepeated, &HeardSound::framesOutOfOrder}) {
        HeardWatermark heard = Good();
        heard.sound.*fault = 1;
        EXPECT_THAT(Broken(heard), ElementsAre("SPK-16"));
        EXPECT_THAT(VerdictOn(heard, full).warnings, ElementsAre(HasSubstr("idle")));
    }
    HeardWatermark heard = Good();
    heard.sound.gapsAtSeconds = {2.5};
    EXPECT_THAT(Broken(heard), ElementsAre("SPK-16"));
}

TEST(HeardVerdict, NamesFaultsAndPlacesOfSequence)
{
    HeardWatermark heard = Good();
    EXPECT_EQ(FaultsOfSequence(heard.sound), "");
    heard.sound.framesMissing = 7;
    heard.sound.framesRepeated = 1;
    heard.sound.framesOutOfOrder = 2;
    heard.sound.gapsAtSeconds = {1, 2, 3, 4, 5.5, 6, 7};
    EXPECT_EQ(FaultsOfSequence(heard.sound),
              "7 of 200 frames are missing; 1 were heard again; 2 were heard out of order; the sound has "
              "gaps in the "
              "recording at 1.000 s, 2.000 s, 3.000 s, 4.000 s, 5.500 s and 2 more places");
}

TEST(HeardVerdict, FindsWrongSpeed)
{
    for (const double speed : {0.5, 0.9985, 1.0015, 2.0}) {
        HeardWatermark heard = Good();
        heard.sound.speed = speed;
        EXPECT_THAT(Broken(heard), ElementsAre("SPK-17")) << speed;
    }
}

TEST(HeardVerdict, FindsSwappedAndMixedChannels)
{
    HeardWatermark heard = Good();
    heard.channels = HeardChannels::SWAPPED;
    EXPECT_THAT(Broken(heard), ElementsAre("SPK-18"));
    heard.channels = HeardChannels::MIXED;
    EXPECT_THAT(Broken(heard), ElementsAre("SPK-18"));
    heard.channels = HeardChannels::UNKNOWN;
    EXPECT_THAT(Broken(heard), IsEmpty());
}

TEST(HeardVerdict, FindsWrongLevel)
{
    HeardWatermark heard = Good();
    for (const double level : {-6.0, -1.2, 1.2}) {
        heard.sound.levelDb = level;
        EXPECT_THAT(Broken(heard), ElementsAre("SPK-19")) << level;
    }
}

TEST(HeardVerdict, AcceptsLevelOfEachPossibleVolume)
{
    HeardWatermark heard = Good();
    const HeardConditions volumes{100, {-3, -15}};
    heard.sound.levelDb = -3.5;
    EXPECT_THAT(Broken(heard, volumes), IsEmpty());
    heard.sound.levelDb = -15.5;
    EXPECT_THAT(Broken(heard, volumes), IsEmpty());
    heard.sound.levelDb = -9;
    EXPECT_THAT(Broken(heard, volumes), ElementsAre("SPK-19"));
    EXPECT_THAT(VerdictOn(heard, volumes).broken.front().text,
                HasSubstr("-9.0 dB instead of -3.0 or -15.0 dB"));
}

TEST(HeardVerdict, ExaminesLevelOfSeparateChannelsOnly)
{
    HeardWatermark heard = Good();
    heard.sound.levelDb = -6;
    heard.channels = HeardChannels::UNKNOWN;
    EXPECT_THAT(Broken(heard), IsEmpty());
    heard.channels = HeardChannels::MIXED;
    EXPECT_THAT(Broken(heard), ElementsAre("SPK-18"));
}

TEST(HeardVerdict, FindsLateSound)
{
    HeardWatermark heard = Good();
    heard.sound.delayMs = 100 + 850;
    EXPECT_THAT(Broken(heard), ElementsAre("SPK-20"));
    heard.sound.delayMs = 100 + 500;
    EXPECT_THAT(Broken(heard), IsEmpty());
    EXPECT_THAT(VerdictOn(heard, full).warnings, SizeIs(1));
}

TEST(HeardVerdict, ExaminesOnlyWhatIsKnown)
{
    HeardWatermark heard = Good();
    heard.sound.delayMs = 5000;
    heard.sound.levelDb = -20;
    EXPECT_THAT(Broken(heard, {}), IsEmpty());
}

} // namespace
} // namespace velto::check
