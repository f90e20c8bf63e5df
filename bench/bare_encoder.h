// The baseline of the capture path: libswresample and FFmpeg's AAC encoder alone, with the module's settings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bench/ffmpeg_library.h"

namespace velto::bench {

// FFmpeg's AAC encoder with the module's settings, and a frame for its input: planes of floats. Both
// functions throw std::runtime_error when a call of FFmpeg fails.
AVCodecContext *OpenAacEncoder();
AVFrame *AllocateEncoderFrame(const AVCodecContext &codec);

class BareEncoder {
public:
    // Accepts interleaved stereo floats at `rateHz`. Throws std::runtime_error when a call of FFmpeg fails.
    explicit BareEncoder(int rateHz);
    ~BareEncoder();
    BareEncoder(const BareEncoder &) = delete;
    BareEncoder &operator=(const BareEncoder &) = delete;

    // Converts and encodes. Returns the number of bytes in the packets that this completed.
    size_t Encode(const float *samples, int frames);

private:
    size_t EncodeFullFrames();

    AVCodecContext *m_codec;
    AVFrame *m_frame;
    AVPacket *m_packet;
    SwrContext *m_converter = nullptr;
    std::vector<float> m_planes[2]; // converted samples that are not encoded yet
};

} // namespace velto::bench
