// The host's latest parameters for the speakers.
#pragma once

#include <atomic>
#include <cstdint>

namespace velto {

// One record for both speakers. The host's parameter call writes it; a play thread reads it when it opens its
// renderer. The three values are independent of each other.
struct SpeakerAudioParams {
    std::atomic<uint32_t> sampleRate{48000}; // Hz
    std::atomic<uint32_t> channels{2};
    std::atomic<uint32_t> bitsPerSample{16};
};

} // namespace velto
