#include "handler/host_records.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "log_lines.h"
#include "tests/fakes/failing_calloc.h"
#include "velto/audio_handler.h"

namespace {

using namespace velto;
using namespace velto_test;

constexpr char capabilityTag[] = "`anonymous-namespace'::VeltoGetAudioCapability";
constexpr char releaseTag[] = "`anonymous-namespace'::VeltoRelease";

class HostRecords : public ::testing::Test {
protected:
    void SetUp() override { ClearLog(); }

    static AudioParameters Apply(const std::vector<AudioProfileEntry> &entries,
                                 AudioParameters parameters = {})
    {
        const AudioProfileList list{static_cast<uint32_t>(entries.size()), 0, entries.data()};
        GetAudioParameter(&list, parameters);
        return parameters;
    }
};

TEST_F(HostRecords, CapabilitiesListFourDevicesWithOneProfileAndCodecEach)
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(VeltoGetAudioCapability(&list, &count), VELTO_OK);
    ASSERT_EQ(count, 4u);
    const std::array<std::pair<const char *, uint32_t>, 4> expected{
        {{"speaker1", 0}, {"ModemSpeaker1", 2}, {"ModemMic1", 3}, {"mic1", 1}}};
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_STREQ(list[i].name, expected[i].first);
        EXPECT_EQ(list[i].nameLength, std::strlen(expected[i].first));
        EXPECT_EQ(list[i].deviceType, expected[i].second);
        ASSERT_EQ(list[i].profileCount, 1u);
        EXPECT_EQ(list[i].profiles[0].sampleRate, 48000u);
        EXPECT_EQ(list[i].profiles[0].channel, 3u);
        EXPECT_EQ(list[i].profiles[0].format, 1u);
        ASSERT_EQ(list[i].codecCount, 1u);
        EXPECT_EQ(list[i].codecs[0], 0u);
        EXPECT_EQ(list[i].padding0, 0u);
        EXPECT_EQ(list[i].padding1, 0u);
        for (const uint8_t byte : list[i].reserved) {
            EXPECT_EQ(byte, 0);
        }
        for (size_t k = list[i].nameLength; k < 64; ++k) {
            EXPECT_EQ(list[i].name[k], 0) << "the name buffer is zero-filled";
        }
    }
    VeltoRelease(1, list, count);
}

TEST_F(HostRecords, CapabilitiesRefuseAndLogNullArguments)
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 77;
    EXPECT_EQ(VeltoGetAudioCapability(nullptr, &count), -2000);
    EXPECT_EQ(count, 77u);
    EXPECT_EQ(VeltoGetAudioCapability(&list, nullptr), -2000);
    EXPECT_EQ(list, nullptr);
    ExpectLine(errorLevel, L"audio capabilities or num is null", capabilityTag, 2);
}

TEST_F(HostRecords, CapabilitiesFailWithNullListAndCountFourWithoutMemory)
{
    AudioCapabilityItem *list = reinterpret_cast<AudioCapabilityItem *>(&list);
    uint32_t count = 0;
    const fakes::FailingCalloc noMemory(1);
    EXPECT_EQ(VeltoGetAudioCapability(&list, &count), -3);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(count, 4u);
}

// Each item takes three blocks. A failure must free all earlier blocks; LeakSanitizer checks this.
TEST_F(HostRecords, CapabilitiesFailWithCountFourWithoutMemoryForItem)
{
    for (int block = 2; block <= 1 + 4 * 3; ++block) {
        AudioCapabilityItem *list = nullptr;
        uint32_t count = 0;
        const fakes::FailingCalloc noMemory(block);
        EXPECT_EQ(VeltoGetAudioCapability(&list, &count), -3) << "block " << block;
        EXPECT_EQ(count, 4u);
        EXPECT_NE(list, nullptr) << "still points to the freed block";
    }
}

// Freeing too few items is a leak, which LeakSanitizer reports. Freeing too many ends the process.
TEST_F(HostRecords, CapabilitiesFreeOwnItemsAfterConcurrentListAndCountChange)
{
    for (int block = 2; block <= 1 + 4 * 3; ++block) {
        for (const uint32_t otherCount : {0u, 4294967295u}) {
            AudioCapabilityItem *list = nullptr;
            uint32_t count = 0;
            const fakes::FailingCalloc noMemory(block, [&] {
                list = nullptr;
                count = otherCount;
            });
            EXPECT_EQ(VeltoGetAudioCapability(&list, &count), -3) << "block " << block;
            EXPECT_EQ(list, nullptr) << "stored once, before the items are filled";
            EXPECT_EQ(count, otherCount);
        }
    }
}

TEST_F(HostRecords, ItemRefusesAndLogsMissingId)
{
    AudioCapabilityItem item{};
    EXPECT_EQ(GetAudioCapabilityItem(nullptr, 0, item), -2000);
    ExpectLine(errorLevel, L"device name is null", "`anonymous-namespace'::GetAudioCapabilityItem");
}

TEST_F(HostRecords, ItemRefusesIdOf65BytesAndStaysEmpty)
{
    AudioCapabilityItem item{};
    EXPECT_EQ(GetAudioCapabilityItem(std::string(65, 'x').c_str(), 1, item), -3);
    EXPECT_EQ(item.name, nullptr);
    EXPECT_EQ(item.nameLength, 0u);
    EXPECT_EQ(item.profileCount, 0u);
}

TEST_F(HostRecords, ItemStoresIdOf64BytesWithoutTerminator)
{
    AudioCapabilityItem item{};
    const std::string id(64, 'x');
    ASSERT_EQ(GetAudioCapabilityItem(id.c_str(), 1, item), 0);
    EXPECT_EQ(item.nameLength, 64u);
    EXPECT_EQ(std::memcmp(item.name, id.data(), 64), 0);
    std::free(item.name);
    std::free(item.profiles);
    std::free(item.codecs);
}

// The name, the profile and the codec take one block each.
TEST_F(HostRecords, ItemFailsWithoutMemoryAndKeepsEarlierBlocks)
{
    for (int block = 1; block <= 3; ++block) {
        AudioCapabilityItem item{};
        {
            const fakes::FailingCalloc noMemory(block);
            EXPECT_EQ(GetAudioCapabilityItem("mic1", 1, item), -3) << "block " << block;
        }
        EXPECT_EQ(item.name != nullptr, block > 1);
        EXPECT_EQ(item.profiles != nullptr, block > 2);
        EXPECT_EQ(item.codecs, nullptr);
        std::free(item.name);
        std::free(item.profiles);
    }
}

TEST_F(HostRecords, ReleaseLogsOtherTypeAndFreesNothing)
{
    auto *block = static_cast<char *>(std::malloc(16));
    std::strcpy(block, "still here");
    VeltoRelease(2, block, 4);
    EXPECT_STREQ(block, "still here");
    std::free(block); // a double free if Release had freed the block
    ExpectLine(infoLevel, L"VeltoRelease type = 2", releaseTag);
    EXPECT_EQ(CountOf(errorLevel), 0);
}

TEST_F(HostRecords, ReleaseLogsTypeAndErrorForNullBlock)
{
    VeltoRelease(1, nullptr, 4);
    ExpectLine(infoLevel, L"VeltoRelease type = 1", releaseTag);
    ExpectLine(errorLevel, L"released ptr is null", releaseTag);
}

TEST_F(HostRecords, ReleaseWithCountZeroFreesOnlyBlock)
{
    // LeakSanitizer checks that the block is freed. Freeing its members would crash, because its bytes are no
    // valid pointers.
    auto *block = std::malloc(sizeof(AudioCapabilityItem));
    std::memset(block, 0xA5, sizeof(AudioCapabilityItem));
    VeltoRelease(1, block, 0);
    ExpectLine(infoLevel, L"VeltoRelease type = 1", releaseTag);
}

TEST_F(HostRecords, ReleaseSkipsNullMembersOfItem)
{
    auto *items = static_cast<AudioCapabilityItem *>(std::calloc(2, sizeof(AudioCapabilityItem)));
    items[1].codecs = static_cast<uint32_t *>(std::malloc(4));
    VeltoRelease(1, items, 2);
    EXPECT_EQ(CountOf(errorLevel), 0);
}

TEST_F(HostRecords, ChannelCodesMapToCountsAndUnknownCodesChangeNothing)
{
    EXPECT_EQ(Apply({{"channel", 7, 1}}).channels, 1u);
    EXPECT_EQ(Apply({{"channel", 7, 3}}, {48000, 1, 16}).channels, 2u);
    EXPECT_EQ(Apply({{"channel", 7, 12}}, {48000, 1, 16}).channels, 2u);
    EXPECT_EQ(Apply({{"channel", 7, 16}}).channels, 1u);
    for (const uint32_t unknown : {0u, 2u, 4u, 17u}) {
        EXPECT_EQ(Apply({{"channel", 7, unknown}}).channels, 2u) << unknown;
        EXPECT_EQ(Apply({{"channel", 7, unknown}}, {48000, 1, 16}).channels, 1u) << unknown;
    }
}

TEST_F(HostRecords, FormatCodesMapToBitsAndUnknownCodesChangeNothing)
{
    EXPECT_EQ(Apply({{"format", 6, 1}}, {48000, 2, 8}).bitsPerSample, 16u);
    EXPECT_EQ(Apply({{"format", 6, 2}}).bitsPerSample, 8u);
    EXPECT_EQ(Apply({{"format", 6, 3}}).bitsPerSample, 32u);
    EXPECT_EQ(Apply({{"format", 6, 4}}).bitsPerSample, 24u);
    EXPECT_EQ(Apply({{"format", 6, 0}}).bitsPerSample, 16u);
    EXPECT_EQ(Apply({{"format", 6, 5}}).bitsPerSample, 16u);
}

TEST_F(HostRecords, SampleRateIsStoredUnchanged)
{
    EXPECT_EQ(Apply({{"sampleRate", 10, 0}}).sampleRate, 0u);
    EXPECT_EQ(Apply({{"sampleRate", 10, 4294967295u}}).sampleRate, 4294967295u);
}

TEST_F(HostRecords, LaterEntriesOverrideEarlierAndUnknownKeysAreIgnored)
{
    const AudioParameters parameters = Apply({{"format", 6, 3},
                                              {"codec", 5, 9},
                                              {"Channel", 7, 1},
                                              {nullptr, 0, 1},
                                              {"format", 0, 4},
                                              {"sampleRateX", 11, 8000}});
    EXPECT_EQ(parameters.sampleRate, 48000u);
    EXPECT_EQ(parameters.channels, 2u);
    EXPECT_EQ(parameters.bitsPerSample, 24u);
}

TEST_F(HostRecords, NullListOrEntriesAreLoggedAndChangeNothing)
{
    AudioParameters parameters{1, 2, 3};
    GetAudioParameter(nullptr, parameters);
    const AudioProfileList empty{1, 0, nullptr};
    GetAudioParameter(&empty, parameters);
    EXPECT_EQ(parameters.sampleRate, 1u);
    EXPECT_EQ(parameters.channels, 2u);
    EXPECT_EQ(parameters.bitsPerSample, 3u);
    ExpectLine(errorLevel, L"audio profiles is null", "`anonymous-namespace'::GetAudioParameter", 2);
}

} // namespace
