// Reads recordings from WAV files.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace velto::check {

struct WavSound {
    uint32_t rateHz = 0;
    uint32_t channels = 0;
    std::vector<float> interleaved; // between -1 and 1
};

// 16-bit or 32-bit integers, or 32-bit float. Throws std::runtime_error with the reason.
WavSound ParseWav(std::span<const uint8_t> bytes);
WavSound ReadWavFile(const std::string &path); // UTF-8

} // namespace velto::check
