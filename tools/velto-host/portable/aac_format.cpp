#include "velto-host/portable/aac_format.h"

#include <algorithm>
#include <array>

namespace velto::host {
namespace {

constexpr std::array<uint32_t, 13> standardRatesHz{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                   22050, 16000, 12000, 11025, 8000,  7350};
constexpr size_t shortHeaderBytes = 7;
constexpr size_t checksumBytes = 2;
constexpr size_t longestFrame = 0x1FFF; // the length field has 13 bits
constexpr uint32_t mostChannels = 6;    // up to six, the channel configuration is the number of channels

// The rate's index in headers; empty for a rate without one.
std::optional<uint32_t> RateIndex(uint32_t sampleRateHz)
{
    const auto *const rate = std::find(standardRatesHz.begin(), standardRatesHz.end(), sampleRateHz);
    if (rate == standardRatesHz.end()) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(rate - standardRatesHz.begin());
}

} // namespace

std::string ObjectTypeName(uint32_t objectType)
{
    switch (objectType) {
    case 1:
        return "AAC Main";
    case aacLowComplexity:
        return "AAC-LC";
    case 3:
        return "AAC SSR";
    case 4:
        return "AAC LTP";
    case spectralBandReplication:
        return "HE-AAC";
    case parametricStereo:
        return "HE-AAC v2";
    default:
        return "MPEG-4 audio object type " + std::to_string(objectType);
    }
}

std::optional<AdtsHeader> ParseAdtsHeader(std::span<const uint8_t> bytes)
{
    if (bytes.size() < shortHeaderBytes || bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0) {
        return std::nullopt; // twelve set bits, then the layer, which is 0
    }
    const bool hasChecksum = (bytes[1] & 0x01) == 0;
    const uint32_t rateIndex = (bytes[2] >> 2) & 0x0F;
    AdtsHeader header;
    header.headerBytes = shortHeaderBytes + (hasChecksum ? checksumBytes : 0);
    header.frameBytes = static_cast<size_t>((bytes[3] & 0x03) << 11 | bytes[4] << 3 | bytes[5] >> 5);
    header.objectType = (bytes[2] >> 6) + 1U;
    header.channelConfiguration = static_cast<uint32_t>((bytes[2] & 0x01) << 2 | bytes[3] >> 6);
    header.rawBlocks = (bytes[6] & 0x03) + 1U;
    if (rateIndex >= standardRatesHz.size() || header.frameBytes <= header.headerBytes) {
        return std::nullopt;
    }
    header.sampleRateHz = standardRatesHz[rateIndex];
    return header;
}

std::vector<uint8_t> MakeAdtsHeader(uint32_t sampleRateHz, uint32_t channels, size_t unitBytes)
{
    constexpr uint32_t lowComplexityProfile = 1; // the object type minus one
    const auto index = RateIndex(sampleRateHz);
    const size_t frameBytes = shortHeaderBytes + unitBytes;
    if (!index || channels == 0 || channels > mostChannels || frameBytes > longestFrame) {
        return {};
    }
    const auto length = static_cast<uint32_t>(frameBytes);
    return {0xFF,
            0xF1, // MPEG-4, no checksum
            static_cast<uint8_t>(lowComplexityProfile << 6 | *index << 2 | channels >> 2),
            static_cast<uint8_t>((channels & 3) << 6 | length >> 11),
            static_cast<uint8_t>(length >> 3),
            static_cast<uint8_t>((length & 7) << 5 | 0x1F), // the rest: variable bit rate, one raw block
            0xFC};
}

std::vector<uint8_t> MakeSpecificConfig(uint32_t objectType, uint32_t sampleRateHz, uint32_t channels)
{
    const auto index = RateIndex(sampleRateHz);
    if (!index || channels == 0 || channels > mostChannels) {
        return {};
    }
    const uint32_t bits = objectType << 11 | *index << 7 | channels << 3;
    return {static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)};
}

} // namespace velto::host
