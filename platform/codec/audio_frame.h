// A frame of PCM on its way into an encoder.
#pragma once

#include <cstdint>
#include <vector>

#include "codec/encode_param.h"

// Filled and encoded by one thread.
class AudioFrame {
public:
    AudioFrame() = default;
    AudioFrame(const AudioFrame &) = delete;
    AudioFrame &operator=(const AudioFrame &) = delete;

    int16_t *samples = nullptr; // interleaved; room for frameLength * channelCount values
    uint32_t fillCount = 0;     // samples per channel written so far
    uint32_t channelCount = 0;  // of the channel code that AllocBuffer was given

    // Makes room for `frameLength` samples per channel, all silence, instead of what was there, and
    // sets the fill count to 0. The rate is only kept. False for a channel code, a format or a
    // length that there is no buffer for, or without memory: then there is no buffer.
    bool AllocBuffer(uint32_t sampleRateHz, uint32_t frameLength, uint32_t channelCode, PCMFormat format);
    // Gives the buffer back; then there is room for nothing. Can be repeated.
    void ReleaseBuffer();

    // Samples per channel that there is room for.
    uint32_t FrameLength() const { return m_frameLength; }
    uint32_t SampleRateHz() const { return m_sampleRateHz; }

private:
    std::vector<int16_t> m_buffer;
    uint32_t m_frameLength = 0;
    uint32_t m_sampleRateHz = 0;
};
