// The sound that checks send: synthesised and encoded at run time, so that no check needs a file.
//
// The functions are deterministic. They throw std::runtime_error if FFmpeg has no AAC encoder. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "check/portable/random.h"

namespace velto::check {

using AacUnits = std::vector<std::vector<uint8_t>>;

// Interleaved stereo at 48000 Hz with the formants, glides and pauses of speech; both channels differ.
// Between -1 and 1.
std::vector<float> SpeechLikeSound(size_t frames);

// Encodes interleaved stereo at 48000 Hz to raw AAC-LC units of 1024 samples, with 128000 bit/s. The first
// unit is the encoder's priming; silence completes the last one.
AacUnits EncodeStereo(std::span<const float> interleaved);

// Raw units of SpeechLikeSound. count > 1
AacUnits SpeechLikeUnits(size_t count);

// The unit with an ADTS header before it.
std::vector<uint8_t> WithAdtsHeader(std::span<const uint8_t> unit);

// A copy with a few changed bytes, or without its end, or both. It may still decode. `unit` is not empty.
std::vector<uint8_t> Damaged(std::span<const uint8_t> unit, Random &random);

// A copy that no decoder accepts: its first element is one of another kind of stream, which has more channels
// than the configuration allows. `unit` is not empty.
std::vector<uint8_t> Undecodable(std::span<const uint8_t> unit);

} // namespace velto::check
