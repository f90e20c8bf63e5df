#include "bench/bare_encoder.h"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace velto::bench {
namespace {

constexpr int encodedRateHz = 48000;
constexpr int64_t bitRate = 128000;

} // namespace

AVCodecContext *OpenAacEncoder()
{
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    AVCodecContext *context = avcodec_alloc_context3(codec);
    Require(context != nullptr, "allocating the encoder");
    context->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    context->sample_rate = encodedRateHz;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->bit_rate = bitRate;
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context->log_level_offset = AV_LOG_INFO;
    Require(av_opt_set(context->priv_data, "aac_coder", "fast", 0) == 0, "choosing the coder");
    Require(avcodec_open2(context, codec, nullptr) == 0, "opening the encoder");
    return context;
}

AVFrame *AllocateEncoderFrame(const AVCodecContext &codec)
{
    AVFrame *frame = av_frame_alloc();
    Require(frame != nullptr, "allocating a frame");
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->sample_rate = codec.sample_rate;
    frame->nb_samples = codec.frame_size;
    frame->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    Require(av_frame_get_buffer(frame, 0) == 0, "allocating samples");
    return frame;
}

BareEncoder::BareEncoder(int rateHz)
    : m_codec(OpenAacEncoder()), m_frame(AllocateEncoderFrame(*m_codec)), m_packet(av_packet_alloc())
{
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    Require(m_packet != nullptr, "allocating a packet");
    Require(swr_alloc_set_opts2(&m_converter, &stereo, AV_SAMPLE_FMT_FLTP, encodedRateHz, &stereo,
                                AV_SAMPLE_FMT_FLT, rateHz, 0, nullptr) == 0 &&
                swr_init(m_converter) == 0,
            "opening the converter");
}

BareEncoder::~BareEncoder()
{
    av_frame_free(&m_frame);
    av_packet_free(&m_packet);
    swr_free(&m_converter);
    avcodec_free_context(&m_codec);
}

size_t BareEncoder::Encode(const float *samples, int frames)
{
    const int room = swr_get_out_samples(m_converter, frames);
    const size_t filled = m_planes[0].size();
    for (std::vector<float> &plane : m_planes) {
        plane.resize(filled + static_cast<size_t>(room));
    }
    uint8_t *out[] = {reinterpret_cast<uint8_t *>(&m_planes[0][filled]),
                      reinterpret_cast<uint8_t *>(&m_planes[1][filled])};
    const auto *in = reinterpret_cast<const uint8_t *>(samples);
    const int converted = swr_convert(m_converter, out, room, &in, frames);
    Require(converted >= 0, "converting");
    for (std::vector<float> &plane : m_planes) {
        plane.resize(filled + static_cast<size_t>(converted));
    }
    return EncodeFullFrames();
}

size_t BareEncoder::EncodeFullFrames()
{
    const auto full = static_cast<size_t>(m_codec->frame_size);
    size_t bytes = 0;
    while (m_planes[0].size() >= full) {
        Require(av_frame_make_writable(m_frame) == 0, "allocating samples");
        for (size_t channel = 0; channel < 2; ++channel) {
            std::vector<float> &plane = m_planes[channel];
            const auto end = plane.begin() + static_cast<std::ptrdiff_t>(full);
            std::copy(plane.begin(), end, reinterpret_cast<float *>(m_frame->data[channel]));
            plane.erase(plane.begin(), end);
        }
        Require(avcodec_send_frame(m_codec, m_frame) == 0, "encoding");
        while (avcodec_receive_packet(m_codec, m_packet) == 0) {
            bytes += static_cast<size_t>(m_packet->size);
            av_packet_unref(m_packet);
        }
    }
    return bytes;
}

} // namespace velto::bench
