// Decodes AAC units with FFmpeg and compares their sound with the source.
#pragma once

#include <cstdint>
#include <vector>

#include "ffmpeg_pointers.h"

namespace velto_test {

inline constexpr uint32_t aacFrameLength = 1024; // samples per channel

// Decodes raw AAC-LC units.
class AacSound {
public:
    // `config`: the decoder configuration; by default AAC-LC, 48000 Hz, stereo.
    explicit AacSound(const std::vector<uint8_t> &config = {0x11, 0x90});

    // Decodes a unit. Fails the test if the unit cannot be decoded.
    void Add(const uint8_t *data, uint32_t size);

    // All samples, interleaved, including the encoder's priming of one frame.
    const std::vector<float> &Samples() const { return m_samples; }
    // `source` starts with the first sample after the priming.
    double SignalToNoiseDb(const std::vector<float> &source) const;

private:
    CodecContextPointer m_decoder;
    FramePointer m_frame{av_frame_alloc()};
    PacketPointer m_packet{av_packet_alloc()};
    int m_channels = 0;
    std::vector<float> m_samples;
};

// Compares decoded sound with its source, both interleaved. Skips the priming: `channels` times the frame
// length.
double SignalToNoiseDb(const std::vector<float> &source, const std::vector<float> &decoded,
                       uint32_t channels);

} // namespace velto_test
