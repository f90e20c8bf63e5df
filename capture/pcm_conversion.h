// From the engine's samples to the encoder's.
#pragma once

#include <cstdint>

namespace velto {

// A float sample as signed 16-bit: full scale in both directions is 32767, what lies beyond is
// limited, the rest is truncated toward zero. What is not a number is silence.
constexpr int16_t FloatToPcm16(float sample)
{
    if (sample >= 1.0F) {
        return 32767;
    }
    if (sample <= -1.0F) {
        return -32767;
    }
    if (sample != sample) {
        return 0;
    }
    return static_cast<int16_t>(sample * 32767.0F);
}

} // namespace velto
