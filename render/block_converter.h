// Converts the decoder's PCM blocks to the endpoint's format.
//
// Input is interleaved signed 16-bit stereo at 48000 Hz, 1024 frames for each conversion. A shorter block is
// converted together with the samples that earlier blocks left in the rest of the input buffer.
//
// Memory: Convert allocates only when the output buffer is too small. Convert moves this buffer into the
// block that it returns; after writing the block, the caller returns the buffer with Recycle.
#pragma once

#include <cstdint>

#include "render/mix_format.h"
#include "render/sample_buffer.h"

struct SwrContext;

namespace velto {

// One converted block. The block owns its samples, because a device change during writing sets up the
// converter again and must not free them.
struct ConvertedBlock {
    SampleBuffer samples;
    int32_t frames = -1;           // negative: not converted
    int32_t bytes = 0;             // size of all frames
    const char *failure = nullptr; // the log line for a block that was not converted
};

// Threads: play thread only. The destructor frees the buffers only; the renderer frees the context in its own
// clean-up.
class BlockConverter {
public:
    static constexpr uint64_t maxBlockBytes = 4096; // 1024 frames x 2 channels x 2 bytes

    BlockConverter() = default;
    BlockConverter(const BlockConverter &) = delete;
    BlockConverter &operator=(const BlockConverter &) = delete;

    // Replaces the context with an unconfigured one and returns it; null when out of memory. Leaks the
    // earlier context, by contract: docs/known-leaks.md.
    const void *AllocateContext();
    // Sets the output format. SetUp must follow before the next Convert.
    void SetOutputFormat(const OutputFormat &format) { m_format = format; }
    // Configures the context, allocating one if there is none, and allocates both buffers. Returns 0 or a
    // negative FFmpeg error.
    int32_t SetUp();

    // Needs an input buffer with samples and a size of 1 to maxBlockBytes.
    ConvertedBlock Convert(const uint8_t *data, uint64_t size);
    // Reuses the buffer of a written block, unless SetUp has allocated another one meanwhile.
    void Recycle(ConvertedBlock &&block);

    const SampleBuffer &Input() const { return m_input; }

    void FreeContext();
    void FreeBuffers();

private:
    friend class AudioPlayerWasProbe; // the unit tests' view of the members

    SwrContext *m_context = nullptr; // owned
    OutputFormat m_format;
    int32_t m_outputChannels = 0; // of the last successful SetUp, which may be older than m_format
    int32_t m_outputFrames = 0;   // contract only: frames expected from the last conversion
    SampleBuffer m_input;
    ConvertedBlock m_output; // buffer of the next block; empty while the caller has a block
};

} // namespace velto
