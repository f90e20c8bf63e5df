#include "bench/bare_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace velto::bench {
namespace {

constexpr int rateHz = 48000;
constexpr size_t frameBytes = 2 * sizeof(int16_t);

} // namespace

BareDecoder::BareDecoder()
{
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    Require(codec != nullptr, "finding the decoder");
    m_codec = avcodec_alloc_context3(codec);
    Require(m_codec != nullptr, "allocating the decoder");
    m_codec->ch_layout = stereo;
    m_codec->sample_rate = rateHz;
    Require(avcodec_open2(m_codec, codec, nullptr) == 0, "opening the decoder");
    Require(swr_alloc_set_opts2(&m_converter, &stereo, AV_SAMPLE_FMT_S16, rateHz, &stereo,
                                m_codec->sample_fmt, rateHz, 0, nullptr) == 0 &&
                swr_init(m_converter) == 0,
            "opening the converter");
    m_packet = av_packet_alloc();
    m_frame = av_frame_alloc();
    Require(m_packet != nullptr && m_frame != nullptr, "allocating a packet and a frame");
}

BareDecoder::~BareDecoder()
{
    av_frame_free(&m_frame);
    av_packet_free(&m_packet);
    swr_free(&m_converter);
    avcodec_free_context(&m_codec);
}

void BareDecoder::Send(const AacUnit &unit)
{
    m_packet->data = const_cast<uint8_t *>(unit.data());
    m_packet->size = static_cast<int>(unit.size());
    Require(avcodec_send_packet(m_codec, m_packet) == 0, "sending a unit");
}

size_t BareDecoder::Receive()
{
    const bool received = avcodec_receive_frame(m_codec, m_frame) == 0;
    return received ? static_cast<size_t>(m_frame->nb_samples) * frameBytes : 0;
}

void BareDecoder::Convert(uint8_t *pcm)
{
    Require(swr_convert(m_converter, &pcm, m_frame->nb_samples, const_cast<const uint8_t **>(m_frame->data),
                        m_frame->nb_samples) == m_frame->nb_samples,
            "converting");
}

} // namespace velto::bench
