#include "codec/audio_frame.h"

#include <cstddef>
#include <new>

namespace {

constexpr uint32_t maxFrameLength = 1U << 20; // samples per channel; AAC frames have 1024

} // namespace

bool AudioFrame::AllocBuffer(uint32_t, uint32_t frameLength, uint32_t channelCode, PCMFormat format)
{
    ReleaseBuffer();
    const uint32_t channels = ChannelCountOf(channelCode);
    if (channels == 0 || format != PCMFormat::S16 || frameLength == 0 || frameLength > maxFrameLength) {
        return false;
    }
    try {
        m_buffer.assign(std::size_t{frameLength} * channels, 0);
    } catch (const std::bad_alloc &) {
        return false;
    }
    samples = m_buffer.data();
    channelCount = channels;
    m_frameLength = frameLength;
    return true;
}

void AudioFrame::ReleaseBuffer()
{
    m_buffer = std::vector<int16_t>(); // clear() would keep the memory
    samples = nullptr;
    fillCount = 0;
    channelCount = 0;
    m_frameLength = 0;
}
