#include "check/portable/heard_verdict.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::check {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
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

std::vector<std::string> ClausesOf(const HeardVerdict &verdict)
{
    std::vector<std::string> clauses;
    for (const BrokenClause &broken : verdict.broken) {
        clauses.push_back(broken.clause);
    }
    return clauses;
}

std::vector<std::string> Broken(const HeardWatermark &heard, const HeardConditions &conditions = full)
{
    return ClausesOf(VerdictOn(heard, conditions));
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

// ---- A comparison with the same sound without the module

HeardVerdict Compared(const HeardWatermark &heard, const HeardWatermark &control)
{
    return CompareWithControl(heard, full, control, full);
}

HeardWatermark Losing(uint32_t lost)
{
    HeardWatermark heard = Good();
    heard.sound.framesHeard = frames - lost;
    heard.sound.framesMissing = lost;
    return heard;
}

HeardWatermark AtLevel(double levelDb)
{
    HeardWatermark heard = Good();
    heard.sound.levelDb = levelDb;
    return heard;
}

HeardWatermark AtSpeed(double speed)
{
    HeardWatermark heard = Good();
    heard.sound.speed = speed;
    return heard;
}

HeardWatermark On(HeardChannels channels)
{
    HeardWatermark heard = Good();
    heard.channels = channels;
    return heard;
}

HeardWatermark After(double delayMs)
{
    HeardWatermark heard = Good();
    heard.sound.delayMs = 100 + delayMs;
    return heard;
}

HeardWatermark OnlyOther(float peak)
{
    HeardWatermark heard;
    heard.sound.framesSent = frames;
    heard.sound.framesMissing = frames;
    heard.sound.envelope = {peak};
    return heard;
}

TEST(HeardControl, LeavesEveryClauseWhereControlIsFaultless)
{
    const std::vector<std::pair<HeardWatermark, std::string>> faults{
        {OnlyOther(0), "SPK-16"},
        {OnlyOther(0.1F), "SPK-3"},
        {Losing(frames / 2), "SPK-16"}, // each second unit
        {Losing(1), "SPK-16"},
        {AtSpeed(0.5), "SPK-17"},
        {On(HeardChannels::SWAPPED), "SPK-18"},
        {On(HeardChannels::MIXED), "SPK-18"},
        {AtLevel(-6), "SPK-19"},
        {After(900), "SPK-20"},
    };
    for (const auto &[heard, clause] : faults) {
        const HeardVerdict verdict = Compared(heard, Good());
        EXPECT_THAT(ClausesOf(verdict), ElementsAre(clause));
        EXPECT_EQ(verdict.excuse, "") << clause;
    }
}

TEST(HeardControl, ExcusesFaultsThatControlHasAsWell)
{
    for (const HeardWatermark &heard :
         {OnlyOther(0), OnlyOther(0.1F), AtSpeed(0.99), On(HeardChannels::SWAPPED), On(HeardChannels::MIXED),
          AtLevel(-6), After(900)}) {
        const std::vector<std::string> broken = Broken(heard);
        ASSERT_THAT(broken, SizeIs(1));
        const HeardVerdict verdict = Compared(heard, heard);
        EXPECT_THAT(verdict.broken, IsEmpty()) << broken.front();
        EXPECT_THAT(verdict.excuse, HasSubstr("this PC changes sound"));
        EXPECT_THAT(verdict.excuse, HasSubstr(broken.front() + ": "));
        EXPECT_THAT(verdict.excuse, HasSubstr("switch off"));
    }
}

TEST(HeardControl, LeavesWorseFaults)
{
    const std::vector<std::pair<HeardWatermark, HeardWatermark>> faultsAndControls{
        {OnlyOther(0), Losing(1)},
        {OnlyOther(0), OnlyOther(0.1F)}, // silence, where another sound was heard
        {OnlyOther(0.1F), Losing(frames / 2)},
        {Losing(frames / 2), Losing(frames / 10)},
        {AtSpeed(0.5), AtSpeed(0.998)},
        {On(HeardChannels::SWAPPED), On(HeardChannels::MIXED)},
        {AtLevel(-9), AtLevel(-3)},
        {AtLevel(-6), OnlyOther(0)},
    };
    for (const auto &[heard, control] : faultsAndControls) {
        EXPECT_THAT(ClausesOf(Compared(heard, control)), Eq(Broken(heard)));
    }
}

TEST(HeardControl, NeverExcusesSingleFrames)
{
    HeardWatermark gap = Good();
    gap.sound.gapsAtSeconds = {1.5, 2.5};
    for (const HeardWatermark &heard : {Losing(2), Losing(frames / 2), gap}) {
        const HeardVerdict verdict = Compared(heard, heard);
        EXPECT_THAT(ClausesOf(verdict), ElementsAre("SPK-16"));
        EXPECT_EQ(verdict.excuse, "");
        EXPECT_THAT(verdict.warnings, Contains(HasSubstr("without the module, was damaged, too")));
    }
}

TEST(HeardControl, ExcusesLevelThatIsAsFarOffAsControls)
{
    EXPECT_THAT(Compared(AtLevel(-6), AtLevel(-5.5)).broken, IsEmpty());
    EXPECT_THAT(Compared(AtLevel(-1.2), AtLevel(-0.9)).broken, IsEmpty()); // only one is out of tolerance
}

TEST(HeardControl, ExcusesOnlyClausesThatControlBreaks)
{
    HeardWatermark heard = On(HeardChannels::SWAPPED);
    heard.sound.levelDb = -6;
    const HeardVerdict verdict = Compared(heard, On(HeardChannels::SWAPPED));
    EXPECT_THAT(ClausesOf(verdict), ElementsAre("SPK-19"));
    EXPECT_THAT(verdict.excuse, HasSubstr("SPK-18: "));
    EXPECT_THAT(verdict.excuse, Not(HasSubstr("SPK-19")));
}

TEST(HeardControl, KeepsWarningsOfSound)
{
    EXPECT_THAT(Compared(After(500), Good()).warnings, SizeIs(1));
    EXPECT_THAT(Compared(After(500), Losing(2)).warnings, SizeIs(2));
}

// ---- Both speakers

TEST(HeardPair, AcceptsBothSounds)
{
    const HeardVerdict verdict = VerdictOn(HeardPair{Good(), frames - 8});
    EXPECT_THAT(verdict.broken, IsEmpty());
    EXPECT_EQ(verdict.excuse, "");
}

TEST(HeardPair, NamesSpeakerThatIsNotHeard)
{
    const auto only = [](const HeardPair &heard) {
        const HeardVerdict verdict = VerdictOn(heard);
        EXPECT_THAT(ClausesOf(verdict), ElementsAre("SPK-21"));
        return verdict.broken.empty() ? "" : verdict.broken.front().text;
    };
    EXPECT_EQ(only({OnlyOther(0.1F), frames}), "nothing was heard of the call speaker");
    EXPECT_EQ(only({Losing(3), frames}), "the call speaker: 3 of 200 frames are missing");
    EXPECT_EQ(only({Good(), frames - 9}), "the media speaker was heard in 191 of 200 frames");
    EXPECT_THAT(VerdictOn(HeardPair{OnlyOther(0), 0}).broken, SizeIs(2));
}

TEST(HeardPair, IsComparedWithControlForEachSpeaker)
{
    const HeardPair good{Good(), frames};
    const HeardPair withoutTone{Good(), 0};
    const HeardPair withoutWatermark{OnlyOther(0.1F), frames};
    EXPECT_THAT(CompareWithControl(withoutTone, good).broken, SizeIs(1));
    EXPECT_THAT(CompareWithControl(withoutTone, withoutWatermark).broken, SizeIs(1));
    EXPECT_THAT(CompareWithControl(withoutTone, HeardPair{Good(), frames - 9}).broken, SizeIs(1));
    EXPECT_THAT(CompareWithControl(withoutWatermark, withoutTone).broken, SizeIs(1));
    EXPECT_THAT(CompareWithControl(withoutTone, withoutTone).broken, IsEmpty());
    EXPECT_THAT(CompareWithControl(withoutTone, withoutTone).excuse, HasSubstr("SPK-21: the media speaker"));
    EXPECT_THAT(CompareWithControl(withoutWatermark, withoutWatermark).broken, IsEmpty());
    const HeardPair damaged{Losing(3), frames - 9};
    EXPECT_THAT(CompareWithControl(damaged, damaged).broken, SizeIs(2));
    EXPECT_THAT(CompareWithControl(damaged, damaged).warnings, SizeIs(1));
}

TEST(HeardControl, IsDisturbedByAudibleSamplesOnly)
{
    const std::vector<float> quiet{0, 0.0009F, -0.0009F};
    const std::vector<float> loud{0, -0.002F};
    EXPECT_TRUE(IsSilent(quiet));
    EXPECT_TRUE(IsSilent({}));
    EXPECT_FALSE(IsSilent(loud));
}

} // namespace
} // namespace velto::check
