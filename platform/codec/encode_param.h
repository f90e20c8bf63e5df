// What an encoder is asked for.
#pragma once

#include <cstdint>

// The format of PCM samples.
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

// How many channels a channel code stands for; 0 when it is none of ours.
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
