// What the write path is judged against: FFmpeg's decoder and converter and nothing else.
#pragma once

#include "bench/aac_frames.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace velto::bench {

// Decodes raw frames at 48000 Hz to interleaved signed 16-bit stereo, with the module's settings.
// Throws std::runtime_error when FFmpeg refuses something.
class BareDecoder {
public:
    BareDecoder();
    ~BareDecoder();
    BareDecoder(const BareDecoder &) = delete;
    BareDecoder &operator=(const BareDecoder &) = delete;

    // Returns the frames (samples per channel) that came out; the last ones stay in the buffer.
    int Decode(const AacFrame &frame);

private:
    AVCodecContext *m_codec = nullptr;
    SwrContext *m_converter = nullptr;
    AVPacket *m_packet = nullptr;
    AVFrame *m_frame = nullptr;
    std::vector<uint8_t> m_pcm;
};

} // namespace velto::bench
