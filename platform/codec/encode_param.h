// Parameters of an encoder.
#pragma once

#include <cstdint>

// Format of PCM samples.
enum class PCMFormat : uint32_t {
    S16 = 1, // signed 16-bit, interleaved
};

// Five unsigned 32-bit values, in this order.
struct EncodeParam {
    uint32_t sampleRateHz;
    uint32_t channelCode; // a channel mask: 3 = front left + front right, 4 = front centre
    uint32_t bitRate;     // bits per second
    uint32_t pcmFormat;   // of the frames: a PCMFormat
    uint32_t objectType;  // MPEG-4 audio object type: 2 = AAC-LC
};

static_assert(sizeof(EncodeParam) == 20);

// Number of channels for a channel code; 0 if the code is not supported.
constexpr uint32_t ChannelCountOf(uint32_t channelCode)
{
    constexpr uint32_t frontPair = 3;
    constexpr uint32_t frontCentre = 4;
    switch (channelCode) {
    case frontPair:
        return 2;
    case frontCentre:
        return 1;
    default:
        return 0;
    }
}
