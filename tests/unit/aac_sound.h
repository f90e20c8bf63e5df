// What AAC packets sound like.
#pragma once

#include <cstdint>
#include <vector>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace velto_test {

// Decodes raw AAC-LC access units of 48000 Hz stereo.
class AacSound {
public:
    AacSound();
    ~AacSound();
    AacSound(const AacSound &) = delete;
    AacSound &operator=(const AacSound &) = delete;

    // Fails the test when the packet cannot be decoded.
    void Add(const uint8_t *data, uint32_t size);

    // Interleaved, the encoder's priming of 1024 samples per channel removed.
    std::vector<float> Samples() const;
    // Against a source that begins where the first packet's does.
    double SignalToNoiseDb(const std::vector<float> &source) const;

private:
    AVCodecContext *m_decoder;
    AVFrame *m_frame;
    AVPacket *m_packet;
    std::vector<float> m_samples;
};

} // namespace velto_test
