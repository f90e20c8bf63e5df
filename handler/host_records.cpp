#include "handler/host_records.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "handler/device_ids.h"
#include "handler/log.h"

namespace velto {
namespace {

constexpr char capabilityTag[] = "`anonymous-namespace'::VeltoGetAudioCapability";
constexpr char itemTag[] = "`anonymous-namespace'::GetAudioCapabilityItem";
constexpr char parameterTag[] = "`anonymous-namespace'::GetAudioParameter";
constexpr char releaseTag[] = "`anonymous-namespace'::VeltoRelease";

constexpr size_t nameBytes = 64;

struct Device {
    const char *id;
    uint32_t type;
};

constexpr std::array<Device, 4> devices{{
    {VELTO_ID_SPEAKER, VELTO_DEVICE_TYPE_SPEAKER},
    {VELTO_ID_MODEM_SPEAKER, VELTO_DEVICE_TYPE_MODEM_SPEAKER},
    {VELTO_ID_MODEM_MIC, VELTO_DEVICE_TYPE_MODEM_MIC},
    {VELTO_ID_MIC, VELTO_DEVICE_TYPE_MIC},
}};

// Zeroed memory from the C runtime's heap, because VeltoRelease frees it with free().
template <typename Record>
Record *Allocate(size_t count = 1)
{
    return static_cast<Record *>(calloc(count, sizeof(Record)));
}

template <typename Block>
void FreeAndClear(Block *&block)
{
    free(block);
    block = nullptr;
}

void FreeCapabilities(void *block, uint32_t count)
{
    for (AudioCapabilityItem &item : std::span(static_cast<AudioCapabilityItem *>(block), count)) {
        FreeAndClear(item.name);
        FreeAndClear(item.profiles);
        FreeAndClear(item.codecs);
    }
    free(block);
}

// The number of channels of a channel code; `otherwise` for an unknown code.
uint32_t ChannelsOf(uint32_t code, uint32_t otherwise)
{
    switch (code) {
    case VELTO_CHANNEL_MONO:
    case VELTO_CHANNEL_MONO_IN:
        return 1;
    case VELTO_CHANNEL_STEREO:
    case VELTO_CHANNEL_STEREO_IN:
        return 2;
    default:
        return otherwise;
    }
}

// The bits per sample of a format code; `otherwise` for an unknown code.
uint32_t BitsOf(uint32_t code, uint32_t otherwise)
{
    switch (code) {
    case VELTO_FORMAT_S16:
        return 16;
    case VELTO_FORMAT_U8:
        return 8;
    case VELTO_FORMAT_S32:
        return 32;
    case VELTO_FORMAT_S24:
        return 24;
    default:
        return otherwise;
    }
}

} // namespace

int32_t VeltoGetAudioCapability(AudioCapabilityItem **list, uint32_t *count)
{
    if (list == nullptr || count == nullptr) {
        LogError(capabilityTag, "audio capabilities or num is null");
        return VELTO_ERROR_INVALID;
    }
    *count = static_cast<uint32_t>(devices.size());
    auto *items = Allocate<AudioCapabilityItem>(devices.size());
    *list = items;
    if (items == nullptr) {
        return VELTO_ERROR_NULL_POINTER;
    }
    auto *item = items;
    for (const Device &device : devices) {
        if (GetAudioCapabilityItem(device.id, device.type, *item++) != VELTO_OK) {
            // Not *count, which another host thread may have changed meanwhile.
            FreeCapabilities(items, static_cast<uint32_t>(devices.size()));
            return VELTO_ERROR_NULL_POINTER;
        }
    }
    return VELTO_OK;
}

int32_t GetAudioCapabilityItem(const char *id, uint32_t deviceType, AudioCapabilityItem &item)
{
    if (id == nullptr) {
        LogError(itemTag, "device name is null");
        return VELTO_ERROR_INVALID;
    }
    const size_t length = std::strlen(id);
    auto *name = Allocate<char>(nameBytes);
    if (name == nullptr || length > nameBytes) {
        free(name);
        return VELTO_ERROR_NULL_POINTER;
    }
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): hosts use nameLength, not a terminator
    std::memcpy(name, id, length);
    item.name = name;
    item.nameLength = static_cast<uint32_t>(length);
    item.deviceType = deviceType;
    item.profileCount = 1;

    item.profiles = Allocate<AudioCapabilityProfile>();
    if (item.profiles == nullptr) {
        return VELTO_ERROR_NULL_POINTER;
    }
    *item.profiles = {48000, VELTO_CHANNEL_STEREO, VELTO_FORMAT_S16};
    item.codecCount = 1;

    item.codecs = Allocate<uint32_t>();
    if (item.codecs == nullptr) {
        return VELTO_ERROR_NULL_POINTER;
    }
    *item.codecs = VELTO_CODEC_AAC;
    return VELTO_OK;
}

void VeltoRelease(uint32_t type, void *block, uint32_t count)
{
    LogInfo(releaseTag, "VeltoRelease type = ", type);
    if (block == nullptr) {
        LogError(releaseTag, "released ptr is null");
        return;
    }
    if (type == VELTO_RELEASE_CAPABILITIES) {
        FreeCapabilities(block, count);
    }
}

void GetAudioParameter(const AudioProfileList *profiles, AudioParameters &parameters)
{
    if (profiles == nullptr || profiles->entries == nullptr) {
        LogError(parameterTag, "audio profiles is null");
        return;
    }
    for (const AudioProfileEntry &entry : std::span(profiles->entries, profiles->count)) {
        if (entry.key == nullptr) {
            continue; // like an unknown key
        }
        const std::string key = entry.key;
        if (key == sampleRateKey) {
            parameters.sampleRate = entry.value;
        } else if (key == channelKey) {
            parameters.channels = ChannelsOf(entry.value, parameters.channels);
        } else if (key == formatKey) {
            parameters.bitsPerSample = BitsOf(entry.value, parameters.bitsPerSample);
        }
    }
}

} // namespace velto
