// The speaker parameters that the host set last.
#pragma once

#include <atomic>
#include <cstdint>

namespace velto {

// One record for both speakers. Written by the host's parameter call, read by a play thread when
// it opens its renderer; the three values are independent, so relaxed order would do.
struct SpeakerAudioParams {
    std::atomic<uint32_t> sampleRate{48000}; // Hz
    std::atomic<uint32_t> channels{2};
    std::atomic<uint32_t> bitsPerSample{16};
};

} // namespace velto
