// The header in front of each access unit of an ADTS stream. Portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace velto::host {

struct AdtsHeader {
    size_t headerBytes = 0;  // 7, or 9 with a checksum
    size_t frameBytes = 0;   // header included
    uint32_t objectType = 0; // of MPEG-4 audio, 1 to 4
    uint32_t sampleRateHz = 0;
    uint32_t channelConfiguration = 0; // 0: described inside the stream
    uint32_t rawBlocks = 0;            // 1 to 4
};

// Empty when the bytes do not begin with a header that makes sense.
std::optional<AdtsHeader> ParseAdtsHeader(std::span<const uint8_t> bytes);

// The seven bytes in front of an AAC-LC unit of this size; empty when the rate is none of the standard
// ones, the channels are more than a header can tell, or the unit is too large.
std::vector<uint8_t> MakeAdtsHeader(uint32_t sampleRateHz, uint32_t channels, size_t unitBytes);

// The two-byte MPEG-4 AudioSpecificConfig of such a stream; empty when the rate is none of the
// standard ones.
std::vector<uint8_t> MakeSpecificConfig(uint32_t objectType, uint32_t sampleRateHz, uint32_t channels);

} // namespace velto::host
