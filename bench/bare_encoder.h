// The bare libraries that the capture path is judged against: libswresample and FFmpeg's AAC
// encoder, with the settings that the module uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace velto::bench {

class BareEncoder {
public:
    // Takes interleaved stereo floats of that rate. Throws std::runtime_error.
    explicit BareEncoder(int rateHz);
    ~BareEncoder();
    BareEncoder(const BareEncoder &) = delete;
    BareEncoder &operator=(const BareEncoder &) = delete;

    // Converts and encodes; the bytes of the packets that came out.
    size_t Encode(const float *samples, int frames);

private:
    size_t EncodeFullFrames();

    AVCodecContext *m_codec = nullptr;
    SwrContext *m_converter = nullptr;
    AVFrame *m_frame = nullptr;
    AVPacket *m_packet = nullptr;
    std::vector<float> m_planes[2]; // converted, not yet encoded
};

} // namespace velto::bench
