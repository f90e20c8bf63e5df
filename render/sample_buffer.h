// A buffer for interleaved samples, allocated by FFmpeg.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace velto {

// Owns FFmpeg's array of plane pointers and the samples of the first plane, the only one that interleaved
// formats use. Can be moved.
class SampleBuffer {
public:
    SampleBuffer() = default;
    ~SampleBuffer() { Free(); }
    SampleBuffer(SampleBuffer &&other) noexcept { Swap(other); }
    SampleBuffer &operator=(SampleBuffer &&other) noexcept;

    // Replaces planes and samples. The buffer is empty if there is no memory.
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

    uint8_t **m_planes = nullptr; // owned; av_freep, after the first plane
    int32_t m_capacityFrames = 0; // in frames of m_frameBytes
    int32_t m_frameBytes = 0;     // of the format of the last allocation
};

} // namespace velto
