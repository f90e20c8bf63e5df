// Sound through the encoder, and back through FFmpeg's decoder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "codec/aac_encoder.h"
#include "codec/encode_param.h"

namespace velto_test {

inline constexpr uint32_t aacFrameLength = 1024;

// Interleaved signed 16-bit samples.
using Pcm = std::vector<int16_t>;

struct EncodedUnit {
    std::vector<uint8_t> bytes;
    int64_t timeStamp = 0;
};

EncodeParam StereoParam();
EncodeParam MonoParam();

// `value` gives a sample between -1 and 1 for a position and a channel.
Pcm MakePcm(size_t samples, uint32_t channels, const std::function<double(size_t, uint32_t)> &value);
double Sine(size_t position, double frequencyHz, double rateHz = 48000);

// Encodes all samples, the last frame as short as it comes, and drains. Expects no error.
std::vector<EncodedUnit> EncodePcm(const EncodeParam &param, const Pcm &pcm);

// One frame's samples, of up to the frame length; what Encode returns, and the unit if there is one.
int32_t EncodeSamples(AACEncoder &encoder, const int16_t *pcm, size_t samples, uint32_t channelCode,
                      std::vector<EncodedUnit> &units);
// Drains to the end; false on an error.
bool DrainEncoder(AACEncoder &encoder, std::vector<EncodedUnit> &units);

// Interleaved samples between -1 and 1, the decoder configured with what the encoder gives for
// these parameters. The first frame length is what the encoder put before the sound.
std::vector<float> DecodeUnits(const EncodeParam &param, const std::vector<EncodedUnit> &units);

// How far below the sound the difference lies, in dB; what was put before the sound is left out.
double SignalToNoiseDb(const Pcm &sent, const std::vector<float> &decoded, uint32_t channels);

} // namespace velto_test
