// Encodes sound with the module's encoder and decodes it with FFmpeg.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "aac_sound.h"
#include "codec/aac_encoder.h"
#include "codec/encode_param.h"

namespace velto_test {

// Interleaved signed 16-bit samples.
using Pcm = std::vector<int16_t>;

struct EncodedUnit {
    std::vector<uint8_t> bytes;
    int64_t timeStamp = 0;
};

EncodeParam StereoParam();
EncodeParam MonoParam();

// `value(position, channel)` returns a sample between -1 and 1. Larger values are clipped.
Pcm MakePcm(size_t samples, uint32_t channels, const std::function<double(size_t, uint32_t)> &value);
double Sine(size_t position, double frequencyHz, double rateHz = 48000);

// Encodes all samples and drains the encoder. The last frame may be short. Expects no error.
std::vector<EncodedUnit> EncodePcm(const EncodeParam &param, const Pcm &pcm);

// Encodes one frame of up to aacFrameLength samples. Appends the packet, if there is one, and returns the
// result of Encode.
int32_t EncodeSamples(AACEncoder &encoder, const int16_t *pcm, size_t samples, uint32_t channelCode,
                      std::vector<EncodedUnit> &units);
// Appends the remaining packets. False on an error.
bool DrainEncoder(AACEncoder &encoder, std::vector<EncodedUnit> &units);

// Returns interleaved samples between -1 and 1. The first 1024 per channel are the encoder's priming. The
// decoder is configured with the encoder's decoder info for these parameters.
std::vector<float> DecodeUnits(const EncodeParam &param, const std::vector<EncodedUnit> &units);

// Skips the priming and expects all samples to be decoded.
double SignalToNoiseDb(const Pcm &sent, const std::vector<float> &decoded, uint32_t channels);

} // namespace velto_test
