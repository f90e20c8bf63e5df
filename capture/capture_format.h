// Formats of the capture path, in the terms of libswresample and of the AAC encoder.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace velto {

struct StreamFormat {
    uint32_t sampleRateHz = 0;
    uint32_t channels = 0;
    AVSampleFormat sampleFormat = AV_SAMPLE_FMT_NONE;
};

// The sample format of a mix format. Samples of 32 bits are floats in shared mode.
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

// The encoder's channel mask: front centre for one channel, front left and right for two. The encoder
// refuses the mask 0 of any other count.
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
