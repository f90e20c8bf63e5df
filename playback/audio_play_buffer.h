// One block of decoded PCM on its way from the decoder to the renderer.
#pragma once

#include <cstdint>

namespace velto {

// Interleaved signed 16-bit stereo at the stream's rate. Allocated with non-throwing new by the
// decoder; owned by the play thread once pushed, which frees `buf` (array) and then the record.
struct AudioPlayBuffer {
    uint8_t *buf = nullptr;
    int32_t len = 0; // bytes in buf
};

} // namespace velto
