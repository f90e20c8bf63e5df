#include "render/mix_format.h"

#include "render_fixture.h"

namespace {

using namespace velto_test;

TEST(MixFormat, MapsEachChannelCountToItsLayout)
{
    const std::pair<uint16_t, int64_t> layouts[] = {{1, 4}, {2, 3}, {4, 0x107}, {6, 0x137}, {8, 0x737}};
    for (const auto &[channels, layout] : layouts) {
        EXPECT_EQ(velto::ChannelLayoutFor(channels), layout) << channels;
    }
}

TEST(MixFormat, MapsOtherChannelCountsToStereo)
{
    for (const uint16_t channels : {0, 3, 5, 7, 9, 65535}) {
        EXPECT_EQ(velto::ChannelLayoutFor(channels), 3) << channels;
    }
}

TEST(MixFormat, OmitsLowFrequencyChannelFromSixAndEightChannels)
{
    constexpr int64_t lowFrequency = 0x8;
    EXPECT_EQ(velto::ChannelLayoutFor(6) & lowFrequency, 0);
    EXPECT_EQ(velto::ChannelLayoutFor(8) & lowFrequency, 0);
}

TEST(MixFormat, MapsSampleSizesToFormatsAndOthersToSixteenBits)
{
    const std::pair<uint16_t, int32_t> formats[] = {{8, 0}, {16, 1}, {32, 2}, {24, 1}, {0, 1}, {64, 1}};
    for (const auto &[bits, format] : formats) {
        EXPECT_EQ(velto::SampleFormatFor(bits), format) << bits;
    }
}

TEST(MixFormat, KeepsSampleRate)
{
    WAVEFORMATEX mix{};
    mix.nChannels = 4;
    mix.wBitsPerSample = 8;
    mix.nSamplesPerSec = 192000;
    const velto::OutputFormat format = velto::OutputFormatFor(mix);
    EXPECT_EQ(format.channelLayout, 0x107);
    EXPECT_EQ(format.sampleFormat, 0);
    EXPECT_EQ(format.sampleRateHz, 192000);
}

class RenderMixFormat : public RenderTest {};

TEST_F(RenderMixFormat, KeepsOutputFormatAndLogsErrorWhenMixFormatIsNull)
{
    OpenWith({6, 32, 44100});
    fakewin::CoTaskMemFree(std::exchange(probe.MixFormat(), nullptr));
    probe.GetWaveFormatParm();
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, L"AudioPlayerWas GetWaveFormatParm parm error",
                                             "AudioPlayerWas::GetWaveFormatParm"}}));
    EXPECT_EQ(probe.Output().channelLayout, 311);
    EXPECT_EQ(probe.Output().sampleFormat, 2);
    EXPECT_EQ(probe.Output().sampleRateHz, 44100);
}

TEST_F(RenderMixFormat, LeavesChannelCountToConverterSetup)
{
    OpenWith({6, 32, 44100});
    probe.MixFormat()->nChannels = 8;
    probe.GetWaveFormatParm();
    EXPECT_EQ(probe.Output().channelLayout, 1847);
    EXPECT_EQ(probe.OutputChannels(), 6);
    EXPECT_EQ(probe.ResampleInit(), 0);
    EXPECT_EQ(probe.OutputChannels(), 8);
}

} // namespace
