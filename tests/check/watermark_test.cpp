// The watermark after a real AAC encoder and decoder, with the defects that a module or a sound system may
// cause.
#include "check/portable/heard_watermark.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/portable/built_in_sound.h"
#include "check/portable/packet_decoder.h"
#include "check/portable/random.h"
#include "check/portable/watermark.h"

namespace velto::check {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Sound = std::vector<float>;

constexpr uint32_t frames = 220;
constexpr uint32_t rate = watermarkRateHz;
constexpr size_t block = 2 * watermarkFrameSamples; // samples of both channels
// The decoder delivers the encoder's priming first: frame n is in block n + 1.
constexpr double unitMs = 1000.0 * watermarkFrameSamples / rate;

Sound Decode(const AacUnits &units)
{
    PacketDecoder decoder;
    Sound sound;
    for (const auto &unit : units) {
        EXPECT_TRUE(decoder.Decode(unit, sound)) << decoder.Reason();
    }
    return sound;
}

// As a module plays it: 16 bits a sample.
Sound InSixteenBits(Sound sound)
{
    for (float &sample : sound) {
        sample = std::round(sample * 32767) / 32767;
    }
    return sound;
}

const AacUnits &SentUnits()
{
    static const AacUnits units = EncodeStereo(WatermarkSound(frames));
    return units;
}

const Sound &PlayedSound()
{
    static const Sound sound = InSixteenBits(Decode(SentUnits()));
    return sound;
}

Sound::const_iterator BlockOf(const Sound &sound, size_t frame)
{
    return sound.begin() + static_cast<std::ptrdiff_t>((frame + 1) * block);
}

// The sound without a frame.
Sound Without(Sound sound, size_t frame)
{
    const auto begin = BlockOf(sound, frame);
    sound.erase(begin, begin + block);
    return sound;
}

// Plays the sound `ratio` times as fast: windowed sinc interpolation of stereo.
Sound Faster(const Sound &sound, double ratio)
{
    constexpr double taps = 12;
    const double cutoff = std::min(1.0, 1 / ratio);
    const auto count = static_cast<int64_t>(sound.size() / 2);
    Sound faster;
    for (double place = 0; place < static_cast<double>(count); place += ratio) {
        double left = 0;
        double right = 0;
        const auto begin = std::max<int64_t>(static_cast<int64_t>(std::ceil(place - taps / cutoff)), 0);
        const auto end =
            std::min<int64_t>(static_cast<int64_t>(std::floor(place + taps / cutoff)), count - 1);
        for (int64_t i = begin; i <= end; ++i) {
            const double x = std::numbers::pi * (place - static_cast<double>(i)) * cutoff;
            const double sinc = std::abs(x) < 1e-9 ? 1 : std::sin(x) / x;
            const double weight = cutoff * sinc * (0.5 + 0.5 * std::cos(x / taps));
            left += weight * sound[static_cast<size_t>(2 * i)];
            right += weight * sound[static_cast<size_t>(2 * i + 1)];
        }
        faster.push_back(static_cast<float>(left));
        faster.push_back(static_cast<float>(right));
    }
    return faster;
}

Sound Louder(Sound sound, float factor)
{
    for (float &sample : sound) {
        sample *= factor;
    }
    return sound;
}

Sound Noise(size_t samples, float peak)
{
    Random random(1);
    Sound noise(samples);
    for (float &sample : noise) {
        sample = peak * (static_cast<float>(random.Below(65536)) / 32768 - 1);
    }
    return noise;
}

Sound Mixed(Sound sound, const Sound &other)
{
    for (size_t i = 0; i < std::min(sound.size(), other.size()); ++i) {
        sound[i] += other[i];
    }
    return sound;
}

HeardSound Hear(const Sound &sound, uint32_t rateHz = rate, uint32_t channels = 2)
{
    return FindWatermark(sound, rateHz, channels, frames);
}

HeardChannels ChannelsIn(const Sound &sound, uint32_t channels = 2)
{
    return ExamineWatermark(sound, rate, channels, frames).channels;
}

std::vector<uint32_t> Numbers(uint32_t count)
{
    std::vector<uint32_t> numbers(count);
    for (uint32_t i = 0; i < count; ++i) {
        numbers[i] = i;
    }
    return numbers;
}

// All frames once, in order, without gaps.
void ExpectComplete(const HeardSound &heard)
{
    EXPECT_EQ(heard.framesSent, frames);
    EXPECT_EQ(heard.framesHeard, frames);
    EXPECT_EQ(heard.framesMissing, 0U);
    EXPECT_EQ(heard.framesRepeated, 0U);
    EXPECT_EQ(heard.framesOutOfOrder, 0U);
    EXPECT_THAT(heard.gapsAtSeconds, IsEmpty());
    EXPECT_EQ(heard.framesInOrder, Numbers(frames));
}

void ExpectNothingHeard(const HeardSound &heard)
{
    EXPECT_EQ(heard.framesHeard, 0U);
    EXPECT_EQ(heard.framesMissing, frames);
    EXPECT_EQ(heard.speed, 0);
    EXPECT_THAT(heard.framesInOrder, IsEmpty());
}

void ExpectGapAfter(const HeardSound &heard, size_t frame)
{
    EXPECT_THAT(heard.gapsAtSeconds, ElementsAre(testing::DoubleNear((frame + 2) * unitMs / 1000, 0.002)));
}

TEST(WatermarkSound, IsAsLongAsItsFramesAndDoesNotClip)
{
    const Sound sound = WatermarkSound(frames);
    EXPECT_EQ(sound.size(), frames * block);
    EXPECT_THAT(sound, Each(AllOf(testing::Ge(-0.4F), testing::Le(0.4F))));
}

TEST(WatermarkSound, IdentifiesEachNumberByItsPitches)
{
    std::vector<uint32_t> pairs;
    for (uint32_t number = 0; number < watermarkNumbers; ++number) {
        pairs.push_back(leftVoice.PitchOf(number) * rightVoice.pitches + rightVoice.PitchOf(number));
    }
    std::sort(pairs.begin(), pairs.end());
    EXPECT_EQ(pairs, Numbers(watermarkNumbers));
}

TEST(FindWatermark, HearsCleanSoundCompletely)
{
    const HeardSound heard = Hear(PlayedSound());
    ExpectComplete(heard);
    EXPECT_NEAR(heard.delayMs, unitMs, 0.2);
    EXPECT_NEAR(heard.speed, 1, 0.0001);
    EXPECT_NEAR(heard.levelDb, 0, 0.3);
    EXPECT_FALSE(heard.channelsSwapped);
    EXPECT_NEAR(heard.seconds, (frames + 1) * unitMs / 1000, 0.03);
    EXPECT_EQ(ChannelsIn(PlayedSound()), HeardChannels::KEPT);
}

TEST(FindWatermark, FindsDelayOfLateSound)
{
    Sound late(2 * 12345);
    late.insert(late.end(), PlayedSound().begin(), PlayedSound().end());
    const HeardSound heard = Hear(late);
    ExpectComplete(heard);
    EXPECT_NEAR(heard.delayMs, unitMs + 1000.0 * 12345 / rate, 0.2);
}

TEST(FindWatermark, HearsSoundAtOtherRatesOfRecording)
{
    for (const uint32_t other : {44100U, 96000U}) {
        SCOPED_TRACE(other);
        const HeardSound heard = Hear(Faster(PlayedSound(), double{rate} / other), other);
        ExpectComplete(heard);
        EXPECT_NEAR(heard.speed, 1, 0.0001);
        EXPECT_NEAR(heard.delayMs, unitMs, 0.2);
        EXPECT_NEAR(heard.levelDb, 0, 0.3);
    }
}

TEST(FindWatermark, HearsMonoRecording)
{
    Sound mono;
    for (size_t i = 0; i < PlayedSound().size(); i += 2) {
        mono.push_back((PlayedSound()[i] + PlayedSound()[i + 1]) / 2);
    }
    const HeardSound heard = Hear(mono, rate, 1);
    ExpectComplete(heard);
    EXPECT_NEAR(heard.levelDb, -6, 0.3);
    EXPECT_EQ(ChannelsIn(mono, 1), HeardChannels::UNKNOWN);
}

TEST(FindWatermark, HearsRecordingOfSixChannels)
{
    Sound six(PlayedSound().size() * 3);
    for (size_t i = 0; i < PlayedSound().size() / 2; ++i) {
        six[6 * i] = PlayedSound()[2 * i];
        six[6 * i + 1] = PlayedSound()[2 * i + 1];
    }
    const HeardSound heard = Hear(six, rate, 6);
    ExpectComplete(heard);
    EXPECT_NEAR(heard.levelDb, 0, 0.3);
    EXPECT_EQ(ChannelsIn(six, 6), HeardChannels::KEPT);
}

TEST(FindWatermark, HearsQuietSoundInSixteenBits)
{
    const HeardSound heard = Hear(InSixteenBits(Louder(PlayedSound(), 0.001F)));
    ExpectComplete(heard);
    EXPECT_NEAR(heard.levelDb, -60, 0.3);
}

TEST(FindWatermark, HearsSoundThroughOtherSound)
{
    ExpectComplete(Hear(Mixed(PlayedSound(), Noise(PlayedSound().size(), 0.1F))));
    ExpectComplete(Hear(Mixed(PlayedSound(), Louder(SpeechLikeSound(frames * watermarkFrameSamples), 0.3F))));
}

TEST(FindWatermark, FindsEachLostBlock)
{
    for (const size_t lost : {1U, 100U, 218U}) {
        SCOPED_TRACE(lost);
        const HeardSound heard = Hear(Without(PlayedSound(), lost));
        EXPECT_EQ(heard.framesMissing, 1U);
        EXPECT_EQ(heard.framesHeard, frames - 1);
        EXPECT_EQ(std::count(heard.framesInOrder.begin(), heard.framesInOrder.end(), lost), 0);
        EXPECT_EQ(heard.framesOutOfOrder, 0U);
        EXPECT_NEAR(heard.speed, 1, 0.0001);
        ExpectGapAfter(heard, lost - 1);
    }
}

TEST(FindWatermark, FindsLostFirstAndLastFrames)
{
    const Sound withoutFirst = Without(PlayedSound(), 0);
    EXPECT_EQ(Hear(withoutFirst).framesMissing, 1U);
    EXPECT_THAT(Hear(withoutFirst).gapsAtSeconds, SizeIs(1));
    const Sound withoutLast = Without(PlayedSound(), frames - 1);
    EXPECT_EQ(Hear(withoutLast).framesMissing, 1U);
    EXPECT_THAT(Hear(withoutLast).gapsAtSeconds, SizeIs(1));
}

// The decoder overlaps neighbouring units: without one, two frames are damaged.
TEST(FindWatermark, FindsLostUnit)
{
    AacUnits units = SentUnits();
    units.erase(units.begin() + 100);
    const HeardSound heard = Hear(Decode(units));
    EXPECT_GE(heard.framesMissing, 1U);
    EXPECT_LE(heard.framesMissing, 3U);
    EXPECT_THAT(heard.gapsAtSeconds, SizeIs(1));
}

TEST(FindWatermark, FindsEachTwoHundredthLostBlock)
{
    constexpr uint32_t many = 1200;
    Sound sound = Decode(EncodeStereo(WatermarkSound(many)));
    for (size_t lost = many; lost > 0; lost -= 200) {
        sound = Without(sound, lost - 1);
    }
    const HeardSound heard = FindWatermark(sound, rate, 2, many);
    EXPECT_EQ(heard.framesMissing, many / 200);
    EXPECT_EQ(heard.framesOutOfOrder, 0U);
    EXPECT_THAT(heard.gapsAtSeconds, SizeIs(many / 200));
}

TEST(FindWatermark, FindsTwoSwappedBlocks)
{
    Sound sound = PlayedSound();
    std::swap_ranges(sound.begin() + 101 * block, sound.begin() + 102 * block, sound.begin() + 102 * block);
    const HeardSound heard = Hear(sound);
    EXPECT_EQ(heard.framesMissing, 0U);
    EXPECT_EQ(heard.framesOutOfOrder, 1U);
    EXPECT_EQ(heard.framesRepeated, 0U);
    EXPECT_EQ(heard.framesInOrder[100], 101U);
    EXPECT_EQ(heard.framesInOrder[101], 100U);
}

TEST(FindWatermark, FindsRepeatedBlock)
{
    Sound sound = PlayedSound();
    sound.insert(sound.begin() + 102 * block, BlockOf(PlayedSound(), 100), BlockOf(PlayedSound(), 101));
    const HeardSound heard = Hear(sound);
    EXPECT_EQ(heard.framesHeard, frames);
    EXPECT_EQ(heard.framesRepeated, 1U);
    EXPECT_EQ(heard.framesOutOfOrder, 0U);
}

TEST(FindWatermark, FindsWrongSpeed)
{
    for (const double speed : {0.5, 0.91875, 0.999, 1.005, 2.0}) {
        SCOPED_TRACE(speed);
        const HeardSound heard = Hear(Faster(PlayedSound(), speed));
        ExpectComplete(heard);
        EXPECT_NEAR(heard.speed, speed, 0.0001);
        EXPECT_NEAR(heard.levelDb, 0, 0.3);
    }
}

// The steady tones of a watermark of another speed, and louder ones.
Sound TonesOfSpeed(double speed)
{
    Sound tones;
    for (size_t i = 0; i < PlayedSound().size(); ++i) {
        const double phase =
            2 * std::numbers::pi * speed * static_cast<double>(i / 2) / watermarkFrameSamples;
        tones.push_back(static_cast<float>(0.2 * std::sin(phase * leftVoice.steadySteps) +
                                           0.2 * std::sin(phase * rightVoice.steadySteps)));
    }
    return tones;
}

TEST(FindWatermark, TakesSpeedFromFramesWhereOtherTonesMislead)
{
    for (const double misleading : {0.7, 1.0008}) {
        SCOPED_TRACE(misleading);
        const HeardSound heard = Hear(Mixed(PlayedSound(), TonesOfSpeed(misleading)));
        ExpectComplete(heard);
        EXPECT_NEAR(heard.speed, 1, 0.0001);
    }
}

TEST(FindWatermark, TakesDelayFromMostOfFirstFrames)
{
    Sound swapped = PlayedSound();
    std::swap_ranges(swapped.begin() + block, swapped.begin() + 2 * block, swapped.begin() + 2 * block);
    EXPECT_NEAR(Hear(swapped).delayMs, unitMs, 0.2);
    Sound repeated = PlayedSound();
    repeated.insert(repeated.begin() + 7 * block, BlockOf(PlayedSound(), 5), BlockOf(PlayedSound(), 6));
    EXPECT_NEAR(Hear(repeated).delayMs, unitMs, 0.2);
}

TEST(FindWatermark, IgnoresFramesThatWereNotSent)
{
    const HeardSound heard = FindWatermark(PlayedSound(), rate, 2, frames - 20);
    EXPECT_EQ(heard.framesInOrder, Numbers(frames - 20));
    EXPECT_EQ(heard.framesMissing, 0U);
    EXPECT_THAT(heard.gapsAtSeconds, IsEmpty());
}

TEST(FindWatermark, FindsSwappedAndMixedChannels)
{
    Sound swapped = PlayedSound();
    Sound mixed = PlayedSound();
    for (size_t i = 0; i < swapped.size(); i += 2) {
        std::swap(swapped[i], swapped[i + 1]);
        mixed[i] = mixed[i + 1] = (mixed[i] + mixed[i + 1]) / 2;
    }
    ExpectComplete(Hear(swapped));
    EXPECT_TRUE(Hear(swapped).channelsSwapped);
    EXPECT_EQ(ChannelsIn(swapped), HeardChannels::SWAPPED);
    ExpectComplete(Hear(mixed));
    EXPECT_FALSE(Hear(mixed).channelsSwapped);
    EXPECT_EQ(ChannelsIn(mixed), HeardChannels::MIXED);
}

TEST(FindWatermark, HearsNothingInSilenceNoiseSpeechOrNoRecording)
{
    ExpectNothingHeard(Hear(Sound(PlayedSound().size())));
    ExpectNothingHeard(Hear(Noise(PlayedSound().size(), 0.3F)));
    ExpectNothingHeard(Hear(SpeechLikeSound(frames * watermarkFrameSamples)));
    ExpectNothingHeard(Hear({}));
    EXPECT_EQ(ChannelsIn({}), HeardChannels::UNKNOWN);
}

TEST(FindWatermark, MeasuresHalvedLevel)
{
    const HeardSound heard = Hear(Louder(PlayedSound(), 0.5F));
    ExpectComplete(heard);
    EXPECT_NEAR(heard.levelDb, -6, 0.3);
}

TEST(FindWatermark, FindsTwentyMillisecondsOfZeros)
{
    Sound sound = PlayedSound();
    const auto begin = sound.begin() + 101 * block + 700;
    std::fill(begin, begin + 2 * rate / 50, 0.0F);
    const HeardSound heard = Hear(sound);
    EXPECT_GE(heard.framesMissing, 1U);
    EXPECT_LE(heard.framesMissing, 2U);
    EXPECT_THAT(heard.gapsAtSeconds, SizeIs(1));
}

TEST(FindWatermark, FindsInsertedAndCutSound)
{
    Sound inserted = PlayedSound();
    inserted.insert(inserted.begin() + 101 * block, 2 * 100, 0.0F); // 2 ms
    const HeardSound longer = Hear(inserted);
    EXPECT_EQ(longer.framesHeard, frames);
    ExpectGapAfter(longer, 99);

    Sound cut = PlayedSound();
    cut.erase(cut.begin() + 101 * block + 300, cut.begin() + 101 * block + 300 + 2 * 100);
    EXPECT_THAT(Hear(cut).gapsAtSeconds, testing::Not(IsEmpty()));
}

TEST(FindWatermark, NumbersSoundLongerThanItsNumbers)
{
    constexpr uint32_t many = 2 * watermarkNumbers + 100;
    const HeardSound heard = FindWatermark(WatermarkSound(many), rate, 2, many);
    EXPECT_EQ(heard.framesInOrder, Numbers(many));
}

TEST(FindWatermark, DrawsPeaksOfRecording)
{
    Sound sound(300 * 10 * 2);
    sound[2 * 10 * 7] = -0.25F;
    sound[2 * 10 * 299 + 1] = 3;
    const HeardSound heard = Hear(sound);
    ASSERT_THAT(heard.envelope, SizeIs(300));
    EXPECT_EQ(heard.envelope[7], 0.25F);
    EXPECT_EQ(heard.envelope[299], 1.0F);
    EXPECT_EQ(std::count(heard.envelope.begin(), heard.envelope.end(), 0.0F), 298);
}

// A place between two frames shows a pitch that neither has, with 0.4 of the energy: more than the search for
// sound in a room asks for.
TEST(FindWatermark, FindsNoFramesBetweenFrames)
{
    ExpectComplete(ExamineWatermark(PlayedSound(), rate, 2, frames, leastShareInRoom).sound);
}

// An echo as loud as the sound hides frames from the ordinary search.
TEST(FindWatermark, HearsSoundInRoomWithMoreTolerance)
{
    Sound room = PlayedSound();
    for (const auto &[delay, factor] : {std::pair{1500, 0.9F}, {3700, 0.7F}, {8100, 0.5F}}) {
        for (size_t i = 2 * delay; i < room.size(); ++i) {
            room[i] += factor * PlayedSound()[i - 2 * delay];
        }
    }
    const HeardSound heard = ExamineWatermark(room, rate, 2, frames, leastShareInRoom).sound;
    EXPECT_GT(heard.framesHeard, frames * 3 / 4);
    EXPECT_GT(heard.framesHeard, Hear(room).framesHeard);
    EXPECT_EQ(ExamineWatermark(Noise(room.size(), 0.3F), rate, 2, frames, leastShareInRoom).sound.framesHeard,
              0U);
}

} // namespace
} // namespace velto::check
