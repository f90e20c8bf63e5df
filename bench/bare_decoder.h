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

    // Decodes a unit and writes its sound to target(bytes), which returns room for that many bytes.
    template <typename Target>
    void Decode(const AacUnit &unit, Target target)
    {
        Send(unit);
        while (const size_t bytes = Receive()) {
            Convert(target(bytes));
        }
    }

private:
    void Send(const AacUnit &unit);
    size_t Receive(); // bytes of the next decoded sound; 0 if there is none
    void Convert(uint8_t *pcm);

    AVCodecContext *m_codec = nullptr;
    SwrContext *m_converter = nullptr;
    AVPacket *m_packet = nullptr;
    AVFrame *m_frame = nullptr;
};

} // namespace velto::bench
