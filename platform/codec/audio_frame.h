// A frame of PCM for an encoder.
#pragma once

#include <cstdint>
#include <vector>

#include "codec/encode_param.h"

// One thread at a time.
class AudioFrame {
public:
    AudioFrame() = default;
    AudioFrame(const AudioFrame &) = delete;
    AudioFrame &operator=(const AudioFrame &) = delete;

    int16_t *samples = nullptr; // interleaved; FrameLength() * channelCount values, null without a buffer
    uint32_t fillCount = 0;     // samples per channel written so far
    uint32_t channelCount = 0;  // derived from AllocBuffer's channel code

    // Replaces the buffer with `frameLength` samples per channel of silence and sets the fill count to 0. The
    // rate is not used. Returns false, without a buffer, for an unsupported channel code, format or length,
    // or if memory runs out.
    bool AllocBuffer(uint32_t sampleRateHz, uint32_t frameLength, uint32_t channelCode, PCMFormat format);
    // Frees the buffer and resets all fields. Can be called without a buffer.
    void ReleaseBuffer();

    // Capacity in samples per channel.
    uint32_t FrameLength() const { return m_frameLength; }

private:
    std::vector<int16_t> m_buffer;
    uint32_t m_frameLength = 0;
};
