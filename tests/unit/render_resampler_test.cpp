// Converting one block to the mix format.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "render_fixture.h"

namespace {

using namespace velto_test;
using fakeffmpeg::Call;

constexpr char resampleTag[] = "AudioPlayerWas::Resample";
constexpr wchar_t refused[] = L"AudioPlayerWas parm is false, do not resample.";

class RenderResampler : public RenderTest {
protected:
    int32_t Resample(const std::vector<uint8_t> &block) { return probe.Resample(block.data(), block.size()); }

    std::vector<uint8_t> Output()
    {
        const uint8_t *begin = probe.OutputBuffer()[0];
        return {begin, begin + probe.OutputBytes()};
    }

    static int Reallocations() { return fakeffmpeg::Script().Count(Call::av_samples_alloc); }

    const std::vector<LogEntry> refusedWithPlane{
        {errorLevel, refused, resampleTag}, {errorLevel, L"AudioPlayerWas resample state 1", resampleTag}};
};

// --- Arguments -------------------------------------------------------------------------------

TEST_F(RenderResampler, ConvertsBlockOf4096Bytes)
{
    OpenWith({2, 32, 48000});
    const auto block = MakeBlock();
    EXPECT_EQ(Resample(block), 1024);
    EXPECT_EQ(probe.OutputBytes(), 8192);
    EXPECT_EQ(Output(), Widened(block));
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderResampler, RefusesBlockOf4097Bytes)
{
    OpenWith({2, 32, 48000});
    const std::vector<uint8_t> block(4097);
    EXPECT_EQ(Resample(block), -1);
    EXPECT_EQ(Log(), refusedWithPlane);
}

TEST_F(RenderResampler, RefusesEmptyBlock)
{
    OpenWith({2, 32, 48000});
    EXPECT_EQ(probe.Resample(MakeBlock().data(), 0), -1);
    EXPECT_EQ(Log(), refusedWithPlane);
}

TEST_F(RenderResampler, RefusesNegativeSize)
{
    OpenWith({2, 32, 48000});
    player->PlayAudio(MakeBlock().data(), -1);
    ExpectLine(errorLevel, refused, resampleTag);
    ExpectLine(errorLevel, L"AudioPlayerWas dstFrames < 0", playTag);
}

TEST_F(RenderResampler, RefusesNullData)
{
    OpenWith({2, 32, 48000});
    EXPECT_EQ(probe.Resample(nullptr, 4096), -1);
    EXPECT_EQ(Log(), refusedWithPlane);
}

TEST_F(RenderResampler, RefusesWhenRendererIsNotOpen)
{
    OpenWith({2, 32, 48000});
    probe.SetOpen(false);
    EXPECT_EQ(Resample(MakeBlock()), -1);
    EXPECT_EQ(Log(), refusedWithPlane);
}

TEST_F(RenderResampler, LogsOnlyRefusalWithoutInputBuffer)
{
    EXPECT_EQ(Resample(MakeBlock()), -1);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, refused, resampleTag}}));
}

TEST_F(RenderResampler, LogsMissingFirstPlaneOfInputBuffer)
{
    OpenWith({2, 32, 48000});
    uint8_t *plane = std::exchange(probe.InputBuffer()[0], nullptr);
    EXPECT_EQ(Resample(MakeBlock()), -1);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, refused, resampleTag},
                                            {errorLevel, L"AudioPlayerWas resample state 0", resampleTag}}));
    probe.InputBuffer()[0] = plane;
}

// --- Output ----------------------------------------------------------------------------------

TEST_F(RenderResampler, ConvertsShortBlockWithTailOfPreviousBlock)
{
    OpenWith({2, 16, 48000});
    const auto whole = MakeBlock(1);
    const auto half = MakeBlock(2, 512);
    EXPECT_EQ(Resample(whole), 1024);
    EXPECT_EQ(Resample(half), 1024);
    std::vector<uint8_t> expected = half;
    expected.insert(expected.end(), whole.begin() + 2048, whole.end());
    EXPECT_EQ(Output(), expected);
}

TEST_F(RenderResampler, ConvertsBlockOfOneByte)
{
    OpenWith({2, 16, 48000});
    const auto whole = MakeBlock(1);
    EXPECT_EQ(Resample(whole), 1024);
    std::vector<uint8_t> expected = whole;
    expected[0] = 0x5A;
    EXPECT_EQ(Resample({0x5A}), 1024);
    EXPECT_EQ(Output(), expected);
}

TEST_F(RenderResampler, CopiesCallerData)
{
    OpenWith({2, 32, 48000});
    const auto block = MakeBlock();
    auto copy = block;
    EXPECT_EQ(Resample(copy), 1024);
    EXPECT_EQ(copy, block);
    std::fill(copy.begin(), copy.end(), uint8_t{0});
    EXPECT_EQ(Output(), Widened(block));
}

TEST_F(RenderResampler, YieldsAbout940FramesPerBlockAt44100Hz)
{
    OpenWith({2, 32, 44100});
    int64_t frames = 0;
    constexpr int blocks = 100;
    for (int i = 0; i < blocks; ++i) {
        const int32_t produced = Resample(MakeBlock(static_cast<uint32_t>(i)));
        ASSERT_GE(produced, i == 0 ? 900 : 940); // the first block fills the filter
        ASSERT_LE(produced, 941);
        EXPECT_EQ(probe.OutputBytes(), produced * 8);
        frames += produced;
    }
    EXPECT_NEAR(static_cast<double>(frames), blocks * 1024 * 44100.0 / 48000.0, 40);
}

TEST_F(RenderResampler, YieldsAbout2048FramesPerBlockAt96000Hz)
{
    OpenWith({2, 32, 96000});
    int64_t frames = 0;
    for (int i = 0; i < 50; ++i) {
        frames += Resample(MakeBlock(static_cast<uint32_t>(i)));
    }
    EXPECT_NEAR(static_cast<double>(frames), 50 * 2048, 80);
}

TEST_F(RenderResampler, YieldsWholeFramesForEachMixFormat)
{
    for (const uint16_t channels : {1, 2, 4, 6, 8}) {
        for (const uint16_t bits : {8, 16, 32}) {
            Speakers().mixFormat = {channels, bits, 48000};
            ASSERT_TRUE(Open());
            EXPECT_EQ(Resample(MakeBlock()), 1024) << channels << " channels, " << bits << " bits";
            EXPECT_EQ(probe.OutputBytes(), 1024 * channels * bits / 8);
            player->Close();
            SwrContext *lost = probe.TakeResampler();
            swr_free(&lost);
        }
    }
}

// The layouts of 4, 6 and 8 channels begin with left and right.
TEST_F(RenderResampler, WritesStereoToFirstTwoOfSeveralChannels)
{
    const auto block = MakeBlock();
    for (const uint16_t channels : {4, 6, 8}) {
        Speakers().mixFormat = {channels, 16, 48000};
        ASSERT_TRUE(Open());
        EXPECT_EQ(Resample(block), 1024);
        std::vector<uint8_t> expected;
        for (size_t frame = 0; frame < 1024; ++frame) {
            const auto begin = block.begin() + static_cast<std::ptrdiff_t>(frame * 4);
            expected.insert(expected.end(), begin, begin + 4);
            expected.resize((frame + 1) * channels * 2);
        }
        EXPECT_EQ(Output(), expected) << channels << " channels";
        player->Close();
        SwrContext *lost = probe.TakeResampler();
        swr_free(&lost);
    }
}

// How far `samples` are from a sine of this frequency, whatever its amplitude and phase, in dB.
double SineToNoiseDb(const std::vector<double> &samples, double frequencyHz, double rateHz)
{
    double sine = 0;
    double cosine = 0;
    const auto angle = [=](size_t i) {
        return 2 * std::numbers::pi * frequencyHz * static_cast<double>(i) / rateHz;
    };
    const auto scale = 2 / static_cast<double>(samples.size());
    for (size_t i = 0; i < samples.size(); ++i) {
        sine += scale * samples[i] * std::sin(angle(i));
        cosine += scale * samples[i] * std::cos(angle(i));
    }
    double noise = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        noise += std::pow(samples[i] - sine * std::sin(angle(i)) - cosine * std::cos(angle(i)), 2);
    }
    const double signal = (sine * sine + cosine * cosine) / 2 * static_cast<double>(samples.size());
    return 10 * std::log10(signal / noise);
}

TEST_F(RenderResampler, KeepsToneOfEachChannelAtOtherRates)
{
    constexpr double leftHz = 1000;
    constexpr double rightHz = 2500;
    for (const uint32_t rateHz : {44100U, 96000U}) {
        Speakers().mixFormat = {2, 16, rateHz};
        ASSERT_TRUE(Open());
        std::vector<double> left;
        std::vector<double> right;
        for (int i = 0; i < 20; ++i) {
            std::vector<int16_t> block;
            for (int frame = 0; frame < 1024; ++frame) {
                const double seconds = (i * 1024 + frame) / 48000.0;
                block.push_back(
                    static_cast<int16_t>(16384 * std::sin(2 * std::numbers::pi * leftHz * seconds)));
                block.push_back(
                    static_cast<int16_t>(8192 * std::sin(2 * std::numbers::pi * rightHz * seconds)));
            }
            const int32_t frames = probe.Resample(reinterpret_cast<const uint8_t *>(block.data()), 4096);
            const auto *samples = reinterpret_cast<const int16_t *>(probe.OutputBuffer()[0]);
            for (int frame = 0; i > 0 && frame < frames; ++frame) { // the first block fills the filter
                left.push_back(samples[2 * frame]);
                right.push_back(samples[2 * frame + 1]);
            }
        }
        // 10 ms contain whole periods of both tones, 10 and 25.
        const size_t whole = left.size() - left.size() % (rateHz / 100);
        left.resize(whole);
        right.resize(whole);
        EXPECT_GT(SineToNoiseDb(left, leftHz, rateHz), 60) << rateHz;
        EXPECT_GT(SineToNoiseDb(right, rightHz, rateHz), 60) << rateHz;
        player->Close();
        SwrContext *lost = probe.TakeResampler();
        swr_free(&lost);
    }
}

TEST_F(RenderResampler, GrowsOutputBufferAtMostThreeTimes)
{
    OpenWith({6, 32, 44100});
    int32_t capacity = probe.OutputCapacityFrames();
    EXPECT_EQ(capacity, 941);
    int32_t longest = 0;
    for (int i = 0; i < 50; ++i) {
        Resample(MakeBlock());
        EXPECT_GE(probe.OutputCapacityFrames(), capacity);
        EXPECT_GE(probe.OutputCapacityFrames(), probe.OutputFrames());
        capacity = probe.OutputCapacityFrames();
        longest = std::max(longest, probe.OutputFrames());
    }
    EXPECT_EQ(longest, capacity);
    EXPECT_GE(Reallocations(), 1) << "samples delayed by the filter make later blocks longer";
    EXPECT_LE(Reallocations(), 3);
}

TEST_F(RenderResampler, AllocatesNothingPerBlockAtEqualRates)
{
    OpenWith({2, 32, 48000});
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(Resample(MakeBlock()), 1024);
    }
    EXPECT_EQ(Reallocations(), 0);
    EXPECT_EQ(probe.OutputFrames(), 1024);
}

TEST_F(RenderResampler, PlaysNothingWithoutLogLineWhenConverterReturnsNoFrames)
{
    OpenWith({2, 32, 48000});
    fakeffmpeg::Script().Fail(Call::swr_convert, 0);
    fakeffmpeg::Script().Fail(Call::av_samples_get_buffer_size, 0);
    Play(MakeBlock());
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(Speakers().writtenFrames.empty());
}

// --- Failures --------------------------------------------------------------------------------

class RenderResamplerFailure : public RenderResampler {
protected:
    // Plays a block and expects it to be dropped with this line. Expects the block after it to be written.
    void ExpectBlockDropped(const std::wstring &text)
    {
        ClearLog();
        const size_t written = Speakers().writtenFrames.size();
        Play(MakeBlock());
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, text, resampleTag},
                                                {errorLevel, L"AudioPlayerWas dstFrames < 0", playTag}}));
        EXPECT_EQ(Speakers().writtenFrames.size(), written);
        ClearLog();
        Play(MakeBlock());
        EXPECT_TRUE(Log().empty());
        EXPECT_EQ(Speakers().writtenFrames.size(), written + 1);
    }
};

TEST_F(RenderResamplerFailure, DropsBlockWithoutMemoryForLongerOutput)
{
    OpenWith({2, 32, 44100});
    int blocks = 0;
    fakeffmpeg::Script().Fail(Call::av_samples_alloc, -12);
    ClearLog();
    while (Reallocations() == 0 && blocks++ < 10) {
        Play(MakeBlock());
    }
    ASSERT_EQ(Reallocations(), 1) << "the buffer had to grow";
    EXPECT_EQ(Log(),
              (std::vector<LogEntry>{{errorLevel, L"AudioPlayerWas av_samples_alloc failed", resampleTag},
                                     {errorLevel, L"AudioPlayerWas dstFrames < 0", playTag}}));
    ClearLog();
    const size_t written = Speakers().writtenFrames.size();
    Play(MakeBlock());
    EXPECT_TRUE(Log().empty()) << "once memory is available";
    EXPECT_EQ(Speakers().writtenFrames.size(), written + 1);
}

TEST_F(RenderResamplerFailure, DropsEveryBlockWhileMemoryIsMissing)
{
    OpenWith({2, 32, 44100});
    fakeffmpeg::Script().Fail(Call::av_samples_alloc, -12, 1, 100);
    for (int i = 0; i < 10; ++i) {
        Play(MakeBlock());
    }
    const size_t written = Speakers().writtenFrames.size();
    ClearLog();
    for (int i = 0; i < 5; ++i) {
        Play(MakeBlock());
    }
    ExpectLine(errorLevel, L"AudioPlayerWas av_samples_alloc failed", resampleTag, 5);
    ExpectLine(errorLevel, L"AudioPlayerWas dstFrames < 0", playTag, 5);
    EXPECT_EQ(Speakers().writtenFrames.size(), written);
}

TEST_F(RenderResamplerFailure, RetriesMissingOutputBufferOnEveryBlock)
{
    Speakers().mixFormat = {2, 16, 48000};
    fakeffmpeg::Script().Fail(Call::av_samples_alloc_array_and_samples, -12, 2, 3);
    ASSERT_TRUE(Open());
    ClearLog();
    Play(MakeBlock());
    Play(MakeBlock());
    ExpectLine(errorLevel, L"AudioPlayerWas av_samples_alloc failed", resampleTag, 2);
    ExpectLine(errorLevel, L"AudioPlayerWas dstFrames < 0", playTag, 2);
    Play(MakeBlock(7));
    EXPECT_EQ(audio.Written(L"speakers"), MakeBlock(7)) << "once memory is available";
}

TEST_F(RenderResamplerFailure, DropsBlockWhenConversionFails)
{
    OpenWith({2, 32, 48000});
    fakeffmpeg::Script().Fail(Call::swr_convert, -22);
    ExpectBlockDropped(L"AudioPlayerWas Error while converting");
}

// Reactivation ignores a failed swr_init, so the next blocks reach an uninitialised converter.
TEST_F(RenderResamplerFailure, DropsBlocksAfterFailedConverterSetupInReactivation)
{
    const fakes::MixFormat formats[] = {
        {2, 16, 48000}, {2, 16, 96000}, {2, 16, 44100}, {8, 32, 192000}, {1, 8, 48000}};
    OpenWith({2, 16, 48000});
    for (const fakes::MixFormat &format : formats) {
        Speakers().mixFormat = format;
        InvalidateSpeakers();
        fakeffmpeg::Script().Fail(Call::swr_init, -22);
        ASSERT_EQ(probe.CheckDeviceChanged(), 0);
        ClearLog();
        for (int block = 0; block < 3; ++block) {
            Play(MakeBlock());
        }
        ExpectLine(errorLevel, L"AudioPlayerWas Error while converting", resampleTag, 3);
        ExpectLine(errorLevel, L"AudioPlayerWas dstFrames < 0", playTag, 3);
        EXPECT_EQ(Log().size(), 6U) << format.rateHz << " Hz, " << format.channels << " channels";
    }
    EXPECT_TRUE(Speakers().writtenFrames.empty());
}

TEST_F(RenderResamplerFailure, DropsBlockWhenSizeComputationFails)
{
    OpenWith({2, 32, 48000});
    fakeffmpeg::Script().Fail(Call::av_samples_get_buffer_size, -22);
    ExpectBlockDropped(L"AudioPlayerWas Could not get sample buffer size");
}

TEST_F(RenderResamplerFailure, StoresNegativeSizeWhenSizeComputationFails)
{
    OpenWith({2, 32, 48000});
    fakeffmpeg::Script().Fail(Call::av_samples_get_buffer_size, -22);
    EXPECT_EQ(Resample(MakeBlock()), -1);
    EXPECT_EQ(probe.OutputBytes(), -22);
}

} // namespace
