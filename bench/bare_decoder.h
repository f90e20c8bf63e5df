// The baseline of the write path: FFmpeg's decoder and converter alone.
#pragma once

#include "bench/aac_units.h"
#include "bench/ffmpeg_library.h"

namespace velto::bench {

// Decodes units without headers at 48000 Hz to interleaved signed 16-bit stereo, with the module's settings.
// Throws std::runtime_error when a call of FFmpeg fails.
class BareDecoder {
public:
    BareDecoder();
    ~BareDecoder();
    BareDecoder(const BareDecoder &) = delete;
    BareDecoder &operator=(const BareDecoder &) = delete;

    // Returns the number of decoded frames (samples per channel).
    int Decode(const AacUnit &unit);

private:
    AVCodecContext *m_codec = nullptr;
    SwrContext *m_converter = nullptr;
    AVPacket *m_packet = nullptr;
    AVFrame *m_frame = nullptr;
    std::vector<uint8_t> m_pcm;
};

} // namespace velto::bench
