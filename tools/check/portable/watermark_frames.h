// Finds the frames of the watermark in a recording: what a correlation with each possible glide at each place
// shows.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace velto::check {

struct FoundFrame {
    double position;    // where it begins, in samples of the recording
    uint32_t number;    // modulo watermarkNumbers
    uint32_t leftPitch; // of its glides
    uint32_t rightPitch;
};

// Which part of the sound's energy in a voice's band the glide of a frame must have. A frame of which a
// quarter is missing has half of it; noise has about 0.05. An echo as loud as the sound leaves half of it.
inline constexpr double leastShareInRecording = 0.5;
inline constexpr double leastShareInRoom = 0.15;

// In the order of their positions; at least 0.6 frames apart. `sound` has one channel; `frameSamples` is the
// length of a frame in it, exact to 0.1 %. Positions are exact to about 0.1 ms.
std::vector<FoundFrame> FindFrames(std::span<const float> sound, double frameSamples, double leastShare);

enum class Voice { LEFT, RIGHT };

// The amplitude of a frame's glide in a channel, as WatermarkSound makes it: `channel` of `channels` in an
// interleaved recording.
double GlideAmplitude(std::span<const float> interleaved, uint32_t channels, uint32_t channel, Voice voice,
                      const FoundFrame &frame, double frameSamples);

} // namespace velto::check
