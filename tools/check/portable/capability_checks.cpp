// The capability list and its release.
#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "check/portable/check.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t deviceCount = 4;
constexpr size_t nameBytes = 64;
constexpr size_t listsAtOnce = 64;
constexpr size_t listsToExamine = 1000;

struct Device {
    std::string_view name;
    uint32_t type;
};

constexpr std::array<Device, deviceCount> devices{{
    {VELTO_ID_SPEAKER, VELTO_DEVICE_TYPE_SPEAKER},
    {VELTO_ID_MODEM_SPEAKER, VELTO_DEVICE_TYPE_MODEM_SPEAKER},
    {VELTO_ID_MODEM_MIC, VELTO_DEVICE_TYPE_MODEM_MIC},
    {VELTO_ID_MIC, VELTO_DEVICE_TYPE_MIC},
}};

// A list of the module, which the check has to release.
struct List {
    AudioCapabilityItem *items = nullptr;
    uint32_t count = 0;
};

// Ends the check without a list.
List GetList(Context &context)
{
    List list;
    const int32_t result = context.table.GetAudioCapability(&list.items, &list.count);
    context.Require(result == VELTO_OK && list.items != nullptr, "CAP-1",
                    fmt::format("GetAudioCapability returned {} and {} list", result,
                                list.items != nullptr ? "a" : "no"));
    return list;
}

void Release(Context &context, const List &list)
{
    context.table.Release(VELTO_RELEASE_CAPABILITIES, list.items, deviceCount);
}

// All bytes that a list consists of, without the addresses.
std::vector<uint8_t> ContentOf(const List &list)
{
    std::vector<uint8_t> content;
    const auto append = [&content](const void *bytes, size_t count) {
        const auto *first = static_cast<const uint8_t *>(bytes);
        content.insert(content.end(), first, first == nullptr ? first : first + count);
    };
    for (uint32_t index = 0; index < deviceCount; ++index) {
        AudioCapabilityItem item = list.items[index];
        append(item.name, nameBytes);
        append(item.profiles, sizeof *item.profiles);
        append(item.codecs, sizeof *item.codecs);
        item.name = nullptr;
        item.profiles = nullptr;
        item.codecs = nullptr;
        append(&item, sizeof item);
    }
    return content;
}

// The addresses of the blocks that a list consists of; null for a missing one.
std::vector<const void *> BlocksOf(const List &list)
{
    std::vector<const void *> blocks{list.items};
    for (uint32_t index = 0; index < deviceCount; ++index) {
        const AudioCapabilityItem &item = list.items[index];
        blocks.insert(blocks.end(), {item.name, item.profiles, item.codecs});
    }
    return blocks;
}

bool IsZero(const void *bytes, size_t count)
{
    const auto *first = static_cast<const uint8_t *>(bytes);
    return std::all_of(first, first + count, [](uint8_t byte) { return byte == 0; });
}

// False if a later look at the item's blocks could fault.
bool HasAllBlocks(Context &context, const AudioCapabilityItem &item, size_t index)
{
    const bool hasName =
        context.Expect(item.name != nullptr, "CAP-7", fmt::format("item {} has no name", index));
    const bool hasProfile =
        context.Expect(item.profiles != nullptr, "CAP-1", fmt::format("item {} has no profile", index));
    const bool hasCodec =
        context.Expect(item.codecs != nullptr, "CAP-1", fmt::format("item {} has no codec", index));
    return hasName && hasProfile && hasCodec;
}

void ExpectDevice(Context &context, const AudioCapabilityItem &item, size_t index)
{
    const Device &device = devices[index];
    const std::string name(item.name, strnlen(item.name, nameBytes));
    context.ExpectEqual(name, std::string(device.name), "CAP-1", "name of item {}", index);
    context.ExpectEqual(item.deviceType, device.type, "CAP-1", "type of item {}", index);
    context.ExpectEqual(item.profiles->sampleRate, uint32_t{VELTO_SAMPLE_RATE_HZ}, "CAP-1",
                        "sample rate of item {}", index);
    context.ExpectEqual(item.profiles->channel, uint32_t{VELTO_CHANNEL_STEREO}, "CAP-1",
                        "channel code of item {}", index);
    context.ExpectEqual(item.profiles->format, uint32_t{VELTO_FORMAT_S16}, "CAP-1", "format code of item {}",
                        index);
    context.ExpectEqual(*item.codecs, uint32_t{VELTO_CODEC_AAC}, "CAP-1", "codec of item {}", index);
}

void ExpectLayout(Context &context, const AudioCapabilityItem &item, size_t index)
{
    const auto length = static_cast<uint32_t>(strnlen(item.name, nameBytes));
    context.ExpectEqual(item.nameLength, length, "CAP-7", "name length of item {}", index);
    context.Expect(IsZero(item.name + length, nameBytes - length), "CAP-7",
                   fmt::format("item {} has bytes other than 0 behind its name", index));
    context.ExpectEqual(item.profileCount, 1U, "CAP-7", "profile count of item {}", index);
    context.ExpectEqual(item.codecCount, 1U, "CAP-7", "codec count of item {}", index);
    context.ExpectEqual(item.padding0, 0U, "CAP-7", "first padding of item {}", index);
    context.ExpectEqual(item.padding1, 0U, "CAP-7", "second padding of item {}", index);
    context.Expect(IsZero(item.reserved, sizeof item.reserved), "CAP-7",
                   fmt::format("item {} has reserved bytes other than 0", index));
}

void CheckList(Context &context)
{
    context.Step("GetAudioCapability, and reading all of its list", {"CAP-1", "CAP-7"});
    const List list = GetList(context);
    for (size_t index = 0; index < devices.size(); ++index) {
        if (HasAllBlocks(context, list.items[index], index)) {
            ExpectDevice(context, list.items[index], index);
            ExpectLayout(context, list.items[index], index);
        }
    }
    context.Step("the release of an unchanged list", {"REL-4"});
    Release(context, list);
}

void CheckCount(Context &context)
{
    context.Step("GetAudioCapability", {"THR-3"});
    List list{nullptr, 0xA5A5A5A5};
    const int32_t result = context.table.GetAudioCapability(&list.items, &list.count);
    context.ExpectEqual(list.count, deviceCount, "CAP-2", "count of GetAudioCapability with the result {}",
                        result);
    if (result == VELTO_OK) {
        Release(context, list);
    }
}

void CheckNullArguments(Context &context)
{
    AudioCapabilityItem marker{};
    List list{&marker, 0xA5A5A5A5};
    const auto expectRefused = [&context](AudioCapabilityItem **items, uint32_t *count,
                                          std::string_view what) {
        context.Step(fmt::format("GetAudioCapability with {}", what), {"CAP-3"});
        context.ExpectEqual(context.table.GetAudioCapability(items, count), int32_t{VELTO_ERROR_INVALID},
                            "CAP-3", "GetAudioCapability with {} returned", what);
    };
    expectRefused(nullptr, nullptr, "two null arguments");
    expectRefused(nullptr, &list.count, "a null list");
    expectRefused(&list.items, nullptr, "a null count");
    context.ExpectEqual(list.count, 0xA5A5A5A5, "CAP-5", "count after a call with a null list");
    context.Expect(list.items == &marker, "CAP-5", "a call with a null count has written the list");
}

void CheckManyLists(Context &context)
{
    context.Step("many lists at once", {"CAP-8"});
    std::vector<List> lists;
    std::set<const void *> blocks;
    for (size_t number = 0; number < listsAtOnce; ++number) {
        lists.push_back(GetList(context));
        for (const void *block : BlocksOf(lists.back())) {
            context.Require(block == nullptr || blocks.insert(block).second, "CAP-8",
                            fmt::format("list {} shares memory with an earlier one", number));
        }
    }
    const std::vector<uint8_t> content = ContentOf(lists.front());
    for (size_t number = 0; number < listsAtOnce; ++number) {
        context.Expect(ContentOf(lists[number]) == content, "CAP-8",
                       fmt::format("list {} differs from the first one", number));
    }
    context.Step("the release of every second list, and reading the others", {"REL-4"});
    for (size_t number = 0; number < listsAtOnce; number += 2) {
        Release(context, lists[number]);
    }
    for (size_t number = 1; number < listsAtOnce; number += 2) {
        context.Expect(ContentOf(lists[number]) == content, "REL-4",
                       fmt::format("the release of other lists changed list {}", number));
        Release(context, lists[number]);
    }
}

// Whether a block of the list is handed out again, so that it must have been freed.
bool IsHandedOutAgain(Context &context, const List &list)
{
    const std::vector<const void *> blocks = BlocksOf(list);
    std::set<const void *> ofList(blocks.begin(), blocks.end());
    ofList.erase(nullptr);
    std::vector<List> others;
    bool again = false;
    for (size_t number = 0; number < listsAtOnce; ++number) {
        others.push_back(GetList(context));
        again = again || std::ranges::any_of(BlocksOf(others.back()),
                                             [&ofList](const void *block) { return ofList.contains(block); });
    }
    if (!again) { // otherwise, the lists share memory with the freed one
        for (const List &other : others) {
            Release(context, other);
        }
    }
    return again;
}

void CheckOtherTypes(Context &context)
{
    context.Step("GetAudioCapability", {"THR-3"});
    const List list = GetList(context);
    const std::vector<uint8_t> content = ContentOf(list);
    if (IsHandedOutAgain(context, list)) {
        return; // another check reports lists that share memory
    }
    for (const uint32_t type : {0U, 2U, 3U, 0x101U, 0x10001U, 0x80000001U, 0xFFFFFFFFU}) {
        context.Step(fmt::format("a release of type {}", type), {"REL-2"});
        context.table.Release(type, list.items, deviceCount);
        context.Require(ContentOf(list) == content && !IsHandedOutAgain(context, list), "REL-2",
                        fmt::format("Release with type {} freed or changed the list", type));
    }
    context.Step("the release of the list with its own type", {"REL-4"});
    Release(context, list);
}

void CheckNullBlock(Context &context)
{
    context.Step("releases of a null block", {"REL-2"});
    for (const uint32_t type : {VELTO_RELEASE_CAPABILITIES + 0U, 0U, 2U}) {
        for (const uint32_t count : {0U, deviceCount, 0xFFFFFFFFU}) {
            context.table.Release(type, nullptr, count);
        }
    }
}

void CheckNullMembers(Context &context)
{
    context.Step("GetAudioCapability", {"THR-3"});
    const List list = GetList(context);
    // Nothing can free these blocks any more. A leak checker finds them through this vector, which outlives
    // the process.
    static auto &kept = *new std::vector<AudioCapabilityItem>;
    kept.push_back(std::exchange(list.items[0], AudioCapabilityItem{}));
    context.Step("the release of a list whose first item is empty", {"REL-4"});
    Release(context, list);
}

// A block that is never freed has an address that no later block has. Freed ones come again after some time,
// except with a sanitizer, which keeps them to detect their use and finds leaks better.
void CheckFrees(Context &context)
{
#if defined(__SANITIZE_ADDRESS__)
    context.Skip("the address sanitizer finds leaks");
#else
    context.Step("many lists, one after the other", {"THR-3"});
    constexpr size_t blocksOfList = 1 + 3 * deviceCount;
    std::array<std::set<const void *>, blocksOfList> addresses;
    for (size_t number = 0; number < listsToExamine; ++number) {
        const List list = GetList(context);
        const std::vector<const void *> blocks = BlocksOf(list);
        for (size_t block = 0; block < addresses.size(); ++block) {
            addresses[block].insert(blocks[block]);
        }
        Release(context, list);
    }
    for (size_t block = 0; block < addresses.size(); ++block) {
        static constexpr std::array kinds{"the codecs", "the name", "the profiles"};
        const std::string what =
            block == 0 ? "the items" : fmt::format("{} of item {}", kinds[block % 3], (block - 1) / 3);
        context.Expect(addresses[block].size() < listsToExamine, "REL-4",
                       fmt::format("Release never frees {}", what));
    }
#endif
}

} // namespace

std::span<const Check> CapabilityChecks()
{
    static const std::array checks{
        Check{"capabilities.list", 2, {"CAP-1", "CAP-7", "REL-4"}, 10s, CheckList},
        Check{"capabilities.count", 2, {"CAP-2", "THR-3"}, 10s, CheckCount},
        Check{"capabilities.null-arguments", 2, {"CAP-3", "CAP-5"}, 10s, CheckNullArguments},
        Check{"capabilities.many-lists", 2, {"CAP-1", "CAP-8", "REL-4"}, 10s, CheckManyLists},
        Check{"release.other-types", 2, {"CAP-1", "REL-2", "REL-4", "THR-3"}, 20s, CheckOtherTypes},
        Check{"release.null-block", 2, {"REL-2"}, 10s, CheckNullBlock},
        Check{"release.null-members", 2, {"CAP-1", "REL-4", "THR-3"}, 10s, CheckNullMembers},
        Check{"release.frees", 2, {"CAP-1", "REL-4", "THR-3"}, 20s, CheckFrees},
    };
    return checks;
}

} // namespace velto::check
