// Two tones, one for each channel, and the check that recorded sound consists of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velto_test {

inline constexpr double toneHz[2] = {1000, 1700}; // left, right: swapped channels do not fit
inline constexpr double toneAmplitude[2] = {0.5, 0.25};

// The sample at a position of the endless sound, between -1 and 1.
double ToneSample(uint64_t position, uint32_t channel, double rateHz);

// True if the sound of one channel is a sine of any phase and of any amplitude above 1 % of full scale.
bool IsSine(const std::vector<double> &sound, double hz, double rateHz);
// True if a channel of interleaved sound is its tone, at its rate and amplitude, with any phase. Allows for
// the noise of an AAC encoder. `channels`: how many the sound has; the first two have tones.
bool IsTone(const std::vector<double> &sound, uint32_t channels, uint32_t channel, double rateHz);
// The same for both channels. False for less than a quarter of a block.
bool AreTones(const std::vector<double> &sound, uint32_t channels, double rateHz);

} // namespace velto_test
