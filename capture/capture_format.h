// What the microphone's mix format and the encoder's channel count mean for the libraries.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace velto {

// The engine's samples: 32 bits are floats, which is what shared mode delivers.
constexpr AVSampleFormat CaptureSampleFormat(uint16_t bitsPerSample)
{
    switch (bitsPerSample) {
    case 8:
        return AV_SAMPLE_FMT_U8;
    case 16:
        return AV_SAMPLE_FMT_S16;
    case 32:
        return AV_SAMPLE_FMT_FLT;
    default:
        return AV_SAMPLE_FMT_NONE;
    }
}

// The encoder's channel mask: front centre for one channel, front left and right for two; 0, which
// the encoder refuses, for any other count.
constexpr uint32_t ChannelCodeFor(uint16_t channels)
{
    switch (channels) {
    case 1:
        return 4;
    case 2:
        return 3;
    default:
        return 0;
    }
}

} // namespace velto
