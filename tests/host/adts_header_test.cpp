#include "velto-host/portable/aac_format.h"

#include <array>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// AAC-LC, 48000 Hz, stereo, no checksum, 263 bytes in all.
constexpr std::array<uint8_t, 7> header{0xFF, 0xF1, 0x4C, 0x80, 0x20, 0xFF, 0xFC};

TEST(AdtsHeader, ParsesAllFields)
{
    const auto parsed = ParseAdtsHeader(header);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(parsed->headerBytes, 7u);
    EXPECT_EQ(parsed->frameBytes, 263u);
    EXPECT_EQ(parsed->objectType, 2u);
    EXPECT_EQ(parsed->sampleRateHz, 48000u);
    EXPECT_EQ(parsed->channelConfiguration, 2u);
    EXPECT_EQ(parsed->rawBlocks, 1u);
}

TEST(AdtsHeader, IsNineBytesWithChecksum)
{
    auto bytes = header;
    bytes[1] = 0xF0;
    EXPECT_EQ(ParseAdtsHeader(bytes)->headerBytes, 9u);
}

TEST(AdtsHeader, RefusesWrongSyncWord)
{
    auto bytes = header;
    bytes[0] = 0xFE;
    EXPECT_FALSE(ParseAdtsHeader(bytes));
    bytes = header;
    bytes[1] = 0xE1;
    EXPECT_FALSE(ParseAdtsHeader(bytes));
}

TEST(AdtsHeader, RefusesMp3Layer)
{
    auto bytes = header;
    bytes[1] = 0xFB;
    EXPECT_FALSE(ParseAdtsHeader(bytes));
}

TEST(AdtsHeader, RefusesReservedSampleRateIndex)
{
    auto bytes = header;
    bytes[2] = 0x7C; // index 15
    EXPECT_FALSE(ParseAdtsHeader(bytes));
}

TEST(AdtsHeader, RefusesFrameNoLongerThanHeader)
{
    auto bytes = header;
    bytes[4] = 0;
    bytes[5] = 0xFF; // 7 bytes
    EXPECT_FALSE(ParseAdtsHeader(bytes));
}

TEST(AdtsHeader, RefusesFewerThanSevenBytes)
{
    EXPECT_FALSE(ParseAdtsHeader(std::span(header).first(6)));
    EXPECT_FALSE(ParseAdtsHeader({}));
}

TEST(AdtsHeader, ParsesBackToOriginalValues)
{
    for (const uint32_t rate : {48000u, 22050u, 7350u}) {
        for (const uint32_t channels : {1u, 2u, 6u}) {
            for (const size_t unitBytes : {size_t{1}, size_t{256}, size_t{8184}}) {
                const auto parsed = ParseAdtsHeader(MakeAdtsHeader(rate, channels, unitBytes));
                ASSERT_TRUE(parsed.has_value()) << rate << " " << channels << " " << unitBytes;
                EXPECT_EQ(parsed->headerBytes, 7u);
                EXPECT_EQ(parsed->frameBytes, unitBytes + 7);
                EXPECT_EQ(parsed->objectType, 2u);
                EXPECT_EQ(parsed->sampleRateHz, rate);
                EXPECT_EQ(parsed->channelConfiguration, channels);
                EXPECT_EQ(parsed->rawBlocks, 1u);
            }
        }
    }
}

TEST(AdtsHeader, IsEmptyForValuesThatHaveNoCode)
{
    EXPECT_THAT(MakeAdtsHeader(48001, 2, 100), IsEmpty());
    EXPECT_THAT(MakeAdtsHeader(48000, 0, 100), IsEmpty());
    EXPECT_THAT(MakeAdtsHeader(48000, 8, 100), IsEmpty());
    EXPECT_THAT(MakeAdtsHeader(48000, 2, 8185), IsEmpty());
}

TEST(AudioSpecificConfig, EncodesTypeRateAndChannels)
{
    EXPECT_THAT(MakeSpecificConfig(2, 48000, 2), ElementsAre(0x11, 0x90));
    EXPECT_THAT(MakeSpecificConfig(2, 22050, 1), ElementsAre(0x13, 0x88));
}

TEST(AudioSpecificConfig, IsEmptyForRateOrChannelsWithoutCode)
{
    EXPECT_THAT(MakeSpecificConfig(2, 48001, 2), IsEmpty());
    EXPECT_THAT(MakeSpecificConfig(2, 48000, 0), IsEmpty());
}

} // namespace
} // namespace velto::host
