// Derives the converter's output format from the engine's mix format.
#pragma once

#include <windows.h>
#include <mmreg.h>

#include <cstdint>

namespace velto {

// The converter's output side. Layouts are FFmpeg channel masks, formats FFmpeg sample formats.
struct OutputFormat {
    int64_t channelLayout = 3; // front left + front right
    int32_t sampleFormat = 1;  // signed 16-bit, interleaved
    int32_t sampleRateHz = 48000;
};

// The layout for a channel count. Six and eight channels map to layouts without a low-frequency
// channel; an unknown count maps to stereo.
int64_t ChannelLayoutFor(uint16_t channels);

// The sample format for a sample size; an unknown size maps to signed 16-bit. Formats of 32 bits
// are taken as integers: the mix format is re-labelled as PCM before it is used.
int32_t SampleFormatFor(uint16_t bitsPerSample);

// Layout, sample format and rate for a mix format.
OutputFormat OutputFormatFor(const WAVEFORMATEX &mixFormat);

} // namespace velto
