#include "render/sample_buffer.h"

#include <utility>

extern "C" {
#include <libavutil/mem.h>
}

namespace velto {

SampleBuffer &SampleBuffer::operator=(SampleBuffer &&other) noexcept
{
    SampleBuffer moved(std::move(other));
    Swap(moved);
    return *this;
}

void SampleBuffer::Allocate(int32_t channels, int32_t frames, AVSampleFormat format)
{
    Free();
    if (av_samples_alloc_array_and_samples(&m_planes, nullptr, channels, frames, format, 0) < 0) {
        m_planes = nullptr;
        return;
    }
    m_capacityFrames = frames;
    m_frameBytes = channels * av_get_bytes_per_sample(format);
}

bool SampleBuffer::Reserve(int32_t channels, int32_t frames, AVSampleFormat format)
{
    if (m_planes == nullptr) {
        Allocate(channels, frames, format);
        return m_planes != nullptr;
    }
    const int32_t frameBytes = channels * av_get_bytes_per_sample(format);
    if (m_planes[0] != nullptr && frames <= m_capacityFrames && frameBytes <= m_frameBytes) {
        return true;
    }
    av_freep(static_cast<void *>(m_planes));
    if (av_samples_alloc(m_planes, nullptr, channels, frames, format, 1) < 0) {
        return false;
    }
    m_capacityFrames = frames;
    m_frameBytes = frameBytes;
    return true;
}

void SampleBuffer::Free()
{
    if (m_planes != nullptr) {
        av_freep(static_cast<void *>(m_planes));
        av_freep(static_cast<void *>(&m_planes));
    }
    m_capacityFrames = 0;
}

void SampleBuffer::Swap(SampleBuffer &other) noexcept
{
    std::swap(m_planes, other.m_planes);
    std::swap(m_capacityFrames, other.m_capacityFrames);
    std::swap(m_frameBytes, other.m_frameBytes);
}

} // namespace velto
