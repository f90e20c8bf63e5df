// The converter's output format, derived from the engine's mix format.
#pragma once

#include <windows.h>
#include <mmreg.h>

#include <cstdint>

namespace velto {

// Layouts are FFmpeg channel masks, formats are FFmpeg sample formats.
struct OutputFormat {
    int64_t channelLayout = 3; // front left + front right
    int32_t sampleFormat = 1;  // signed 16-bit, interleaved
    int32_t sampleRateHz = 48000;
};

// The layout for a channel count. Six and eight channels map to layouts without a low-frequency
// channel; an unknown count maps to stereo.
int64_t ChannelLayoutFor(uint16_t channels);

// The sample format for a sample size; an unknown size maps to signed 16-bit. 32 bits map to integers,
// although engines report floats: the client is initialised with the mix format relabelled as PCM.
int32_t SampleFormatFor(uint16_t bitsPerSample);

OutputFormat OutputFormatFor(const WAVEFORMATEX &mixFormat);

} // namespace velto
