// Compares a recording with the watermark that was sent: delay, speed, level, gaps, order, repetitions,
// channels.
#pragma once

#include <cstdint>
#include <span>

#include "check/portable/results.h"
#include "check/portable/watermark_frames.h"

namespace velto::check {

// Where the two channels of the watermark were heard.
enum class HeardChannels {
    UNKNOWN, // nothing was heard, or the recording has one channel
    KEPT,    // left in the first channel, right in the second one
    SWAPPED,
    MIXED, // otherwise: each voice is at most 10 dB louder on its own side
};

struct HeardWatermark {
    HeardSound sound; // without a source; delayMs counts from the begin of the recording
    HeardChannels channels = HeardChannels::UNKNOWN;
};

// Examines a recording, also a silent or empty one. A sample of it is between -1 and 1; `channels` and
// `rateHz` are positive. For recordings from the air, `leastShare` is leastShareInRoom. Any thread.
//
// The level is the one of all channels together: that of a stereo sound that was mixed to one channel is -6
// dB.
HeardWatermark ExamineWatermark(std::span<const float> interleaved, uint32_t rateHz, uint32_t channels,
                                uint32_t framesSent, double leastShare = leastShareInRecording);

// The sound of ExamineWatermark.
HeardSound FindWatermark(std::span<const float> interleaved, uint32_t rateHz, uint32_t channels,
                         uint32_t framesSent);

} // namespace velto::check
