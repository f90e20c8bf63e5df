// Sample buffers as FFmpeg allocates them: an array of planes in front of their storage.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/mem.h>
}

namespace velto {

// Frees storage and plane array, if there are any, and clears the pointer.
inline void FreeSampleBuffer(uint8_t **&samples)
{
    if (samples != nullptr) {
        av_freep(static_cast<void *>(samples));
        av_freep(static_cast<void *>(&samples));
    }
}

} // namespace velto
