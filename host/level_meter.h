// How loud a raw AAC access unit is, found by decoding it; tells as well whether it can be decoded
// at all. One thread. Portable.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/aac_reader.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace velto::host {

inline constexpr double silenceDb = -90.0; // the lowest level that is shown

class LevelMeter {
public:
    explicit LevelMeter(const AacStream &stream);
    ~LevelMeter();
    LevelMeter(const LevelMeter &) = delete;
    LevelMeter &operator=(const LevelMeter &) = delete;

    // False when there is no decoder for this stream: units then pass unjudged.
    bool IsAvailable() const { return m_decoder != nullptr; }

    // Peak of the unit in dB of full scale, silenceDb to 0 (and a little above). Empty for a unit
    // that the decoder refuses. silenceDb for every unit when not available.
    std::optional<double> PeakDb(const std::vector<uint8_t> &unit);

private:
    struct Closer {
        void operator()(AVCodecContext *decoder) const;
        void operator()(AVPacket *packet) const;
        void operator()(AVFrame *frame) const;
    };

    std::unique_ptr<AVCodecContext, Closer> m_decoder;
    std::unique_ptr<AVPacket, Closer> m_packet;
    std::unique_ptr<AVFrame, Closer> m_frame;
};

} // namespace velto::host
