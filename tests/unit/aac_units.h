// AAC units for tests, encoded by FFmpeg.
#pragma once

#include <cstdint>
#include <vector>

namespace velto_test {

using AacUnit = std::vector<uint8_t>;

// Returns `count` raw AAC-LC units of a sine tone at 48000 Hz. `channels`: 1 or 2. The first unit is the
// encoder's priming.
std::vector<AacUnit> EncodeTone(int count, int channels = 2, double frequencyHz = 440.0);

// Returns `count` raw AAC-LC units of stereo sound that repeats nowhere: the left channel's frequency rises
// from `startHz`, the right channel's from twice that.
std::vector<AacUnit> EncodeSweep(int count, double startHz);

} // namespace velto_test
