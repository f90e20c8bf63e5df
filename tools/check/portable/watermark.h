// The sound that listening checks play: each frame of it carries its own number, so that a recording shows
// which frames were heard, when, and in which order.
//
// A frame is 1024 samples at 48000 Hz, as long as one unit. The left channel contains a rising tone, the
// right channel a falling one, in a higher band. The pitch of each tone is one of a few: 31 on the left, 32
// on the right. Both together are the frame's number, up to 992, which is 21 seconds of sound; then the
// numbers repeat. Neighbouring frames have distant pitches.
//
//     Hz
//     10734 |  \            :  right: 32 pitches, falling
//           |       \   \   :
//      6000 |    \          :
//      5625 |     /         :  left: 31 pitches, rising
//           |  /        /   :
//      1031 |        /      :
//       609 |---------------:  steady tone on the right
//       469 |---------------:  steady tone on the left
//           +---+---+---+---+
//             0   1   2   3    frame
//
// Glides survive the AAC encoder, which spreads errors over two frames, and show time exactly: a frame that
// is searched 1 ms too late has its left tone 18 Hz too high and its right tone 18 Hz too low. The steady
// tones show the speed. They have a whole number of periods in a frame, so a lost frame does not break them.
#pragma once

#include <cstdint>
#include <vector>

namespace velto::check {

inline constexpr uint32_t watermarkRateHz = 48000;
inline constexpr uint32_t watermarkFrameSamples = 1024;
// All frequencies are multiples of this one, which has one period in a frame.
inline constexpr double watermarkStepHz = double{watermarkRateHz} / watermarkFrameSamples;

// The tones of one channel.
struct WatermarkVoice {
    uint32_t pitches;
    uint32_t stride;      // pitches from a frame to the next one; it and `pitches` have no common divisor
    int32_t lowestSteps;  // the glide of pitch 0 begins here, in watermarkStepHz
    int32_t spacingSteps; // from one pitch to the next
    int32_t glideSteps;   // by which the tone changes during a frame; negative: it falls
    int32_t steadySteps;  // the steady tone

    uint32_t PitchOf(uint32_t frame) const
    {
        return static_cast<uint32_t>(uint64_t{frame} * stride % pitches);
    }
    // In steps, where the glide of this pitch begins.
    int32_t BeginOf(uint32_t pitch) const { return lowestSteps + spacingSteps * static_cast<int32_t>(pitch); }
};

// Twice the highest frequency is still below 22050 Hz, so that a sound of double speed is recognised, too.
inline constexpr WatermarkVoice leftVoice{31, 12, 22, 3, 8, 10};
inline constexpr WatermarkVoice rightVoice{32, 13, 136, 3, -8, 13};
inline constexpr uint32_t watermarkNumbers = leftVoice.pitches * rightVoice.pitches;

inline constexpr float glideAmplitude = 0.3F;
inline constexpr float steadyAmplitude = 0.06F;

// Interleaved stereo at 48000 Hz, `frames` times 1024 samples for each channel; peaks below 0.4.
std::vector<float> WatermarkSound(uint32_t frames);

} // namespace velto::check
