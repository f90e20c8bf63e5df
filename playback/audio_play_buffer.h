// One block of decoded PCM between decoder and renderer.
#pragma once

#include <cstdint>

namespace velto {

// Interleaved signed 16-bit stereo at the stream's rate. The decoder allocates record and `buf` with
// non-throwing new and pushes them to the play thread, which then owns both and frees `buf` before the
// record.
struct AudioPlayBuffer {
    uint8_t *buf = nullptr;
    int32_t len = 0; // bytes of buf
};

} // namespace velto
