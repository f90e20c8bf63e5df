// Finds how fast a recording plays the watermark, from the pitch of its steady tones.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace velto::check {

// Speeds from 0.4 to 2.5, the likeliest first; 1 is one of them. Exact to about 0.01 %. `sound` has one
// channel.
std::vector<double> LikelySpeeds(std::span<const float> sound, uint32_t rateHz);

} // namespace velto::check
