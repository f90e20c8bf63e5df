// Decodes the microphone's packets: raw AAC-LC units of 48000 Hz stereo.
//
// One thread for each object. Portable.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace velto::check {

class PacketDecoder {
public:
    // Throws std::runtime_error if FFmpeg has no AAC decoder.
    PacketDecoder();
    ~PacketDecoder();
    PacketDecoder(const PacketDecoder &) = delete;
    PacketDecoder &operator=(const PacketDecoder &) = delete;

    // Appends the samples of one unit, 1024 for each channel, between -1 and 1. False, with a reason and
    // nothing appended, unless the unit is exactly one raw unit of AAC-LC at 48000 Hz in stereo.
    bool Decode(std::span<const uint8_t> unit, std::vector<float> &interleaved);

    // Why the last unit was refused.
    const std::string &Reason() const { return m_reason; }
    uint32_t Errors() const { return m_errors; }

private:
    struct Closer {
        void operator()(AVCodecContext *context) const;
        void operator()(AVFrame *frame) const;
        void operator()(AVPacket *packet) const;
    };

    std::string Take(std::span<const uint8_t> unit, std::vector<float> &interleaved);
    std::string Append(std::vector<float> &interleaved) const;

    std::unique_ptr<AVCodecContext, Closer> m_context;
    std::unique_ptr<AVFrame, Closer> m_frame;
    std::unique_ptr<AVPacket, Closer> m_packet;
    std::string m_reason;
    uint32_t m_errors = 0;
};

} // namespace velto::check
