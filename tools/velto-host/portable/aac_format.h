// Descriptions of AAC: the format of a stream, ADTS headers, the configuration of a decoder. Portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace velto::host {

// A file that cannot be read or written, or is not AAC. The message begins with the file's name.
class AacFileError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// MPEG-4 audio object types.
inline constexpr uint32_t aacLowComplexity = 2;
inline constexpr uint32_t spectralBandReplication = 5;
inline constexpr uint32_t parametricStereo = 29;

inline constexpr uint32_t samplesPerUnit = 1024; // per channel, of the AAC core

struct AacStream {
    bool isAdts = false;
    uint32_t sampleRateHz = 0; // of the AAC core: a unit lasts 1024 of its samples
    uint32_t channels = 0;     // as decoded
    uint32_t objectType = 0;
    double durationSeconds = 0;          // 0 if unknown; ADTS files do not state it
    std::vector<uint8_t> specificConfig; // MPEG-4 AudioSpecificConfig, for a decoder

    double UnitSeconds() const { return static_cast<double>(samplesPerUnit) / sampleRateHz; }
};

// "AAC-LC", "HE-AAC", ...; the number for a type without a common name.
std::string ObjectTypeName(uint32_t objectType);

// The header before each access unit of an ADTS stream.
struct AdtsHeader {
    size_t headerBytes = 0;  // 7, or 9 with a checksum
    size_t frameBytes = 0;   // header and unit
    uint32_t objectType = 0; // 1 to 4
    uint32_t sampleRateHz = 0;
    uint32_t channelConfiguration = 0; // 0: described inside the stream
    uint32_t rawBlocks = 0;            // 1 to 4
};

// Empty if the bytes do not begin with a valid header.
std::optional<AdtsHeader> ParseAdtsHeader(std::span<const uint8_t> bytes);

// The seven-byte header of an AAC-LC unit of this size. Empty if a header cannot state the rate, the number
// of channels or the size.
std::vector<uint8_t> MakeAdtsHeader(uint32_t sampleRateHz, uint32_t channels, size_t unitBytes);

// The two-byte MPEG-4 AudioSpecificConfig of a stream. Empty if it cannot state the rate or the number of
// channels.
std::vector<uint8_t> MakeSpecificConfig(uint32_t objectType, uint32_t sampleRateHz, uint32_t channels);

} // namespace velto::host
