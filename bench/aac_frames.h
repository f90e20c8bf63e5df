// The AAC frames of an ADTS file, without their headers: what a host sends.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velto::bench {

using AacFrame = std::vector<uint8_t>;

// Throws std::runtime_error when the file is not an ADTS stream at 48000 Hz, which is the rate
// that the module takes raw frames to have.
std::vector<AacFrame> ReadAacFrames(const std::string &path);

} // namespace velto::bench
