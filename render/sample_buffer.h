// A buffer for interleaved samples, allocated by FFmpeg.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace velto {

// FFmpeg's array of planes, of which interleaved formats use the first, and the samples of this plane. Owns
// both and can be moved.
class SampleBuffer {
public:
    SampleBuffer() = default;
    ~SampleBuffer() { Free(); }
    SampleBuffer(SampleBuffer &&other) noexcept { Swap(other); }
    SampleBuffer &operator=(SampleBuffer &&other) noexcept;

    // Replaces planes and samples. When out of memory, the buffer is empty afterwards.
    void Allocate(int32_t channels, int32_t frames, AVSampleFormat format);
    // Makes room for `frames` frames of this format; the buffer only grows. False when out of memory; the
    // next call tries again.
    bool Reserve(int32_t channels, int32_t frames, AVSampleFormat format);
    void Free();

    bool HasPlanes() const { return m_planes != nullptr; }
    uint8_t **Planes() const { return m_planes; }
    uint8_t *Samples() const { return m_planes != nullptr ? m_planes[0] : nullptr; }
    int32_t CapacityFrames() const { return m_capacityFrames; }

private:
    friend class AudioPlayerWasProbe; // the unit tests' view of the members

    void Swap(SampleBuffer &other) noexcept;

    uint8_t **m_planes = nullptr; // av_freep, after the first plane
    int32_t m_capacityFrames = 0; // in frames of m_frameBytes
    int32_t m_frameBytes = 0;     // of the format that the samples were allocated for
};

} // namespace velto
