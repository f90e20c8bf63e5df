// One block of decoded PCM between decoder and renderer.
#pragma once

#include <cstdint>

namespace velto {

// Interleaved signed 16-bit stereo at the stream's rate. The decoder allocates the record and `buf` with
// non-throwing new and pushes the record to the play thread, which then owns and frees both.
struct AudioPlayBuffer {
    uint8_t *buf = nullptr;
    int32_t len = 0; // bytes of buf
};

} // namespace velto
