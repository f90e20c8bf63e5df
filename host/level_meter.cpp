#include "host/level_meter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "host/ffmpeg.h"

namespace velto::host {
namespace {

bool SetExtradata(AVCodecContext &decoder, const std::vector<uint8_t> &bytes)
{
    decoder.extradata = static_cast<uint8_t *>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (decoder.extradata == nullptr) {
        return false;
    }
    std::memcpy(decoder.extradata, bytes.data(), bytes.size());
    decoder.extradata_size = static_cast<int>(bytes.size());
    return true;
}

float Peak(const AVFrame &frame)
{
    float peak = 0;
    for (int channel = 0; channel < frame.ch_layout.nb_channels; ++channel) {
        const auto *samples = reinterpret_cast<const float *>(frame.extended_data[channel]);
        for (int i = 0; i < frame.nb_samples; ++i) {
            peak = std::max(peak, std::fabs(samples[i]));
        }
    }
    return peak;
}

} // namespace

void LevelMeter::Closer::operator()(AVCodecContext *decoder) const
{
    avcodec_free_context(&decoder);
}

void LevelMeter::Closer::operator()(AVPacket *packet) const
{
    av_packet_free(&packet);
}

void LevelMeter::Closer::operator()(AVFrame *frame) const
{
    av_frame_free(&frame);
}

LevelMeter::LevelMeter(const AacStream &stream) : m_packet(av_packet_alloc()), m_frame(av_frame_alloc())
{
    if (m_packet == nullptr || m_frame == nullptr) {
        throw std::bad_alloc();
    }
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    m_decoder.reset(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
    if (m_decoder == nullptr || stream.specificConfig.empty() ||
        !SetExtradata(*m_decoder, stream.specificConfig) ||
        avcodec_open2(m_decoder.get(), codec, nullptr) < 0 || m_decoder->sample_fmt != AV_SAMPLE_FMT_FLTP) {
        m_decoder.reset();
    }
}

LevelMeter::~LevelMeter() = default;

std::optional<double> LevelMeter::PeakDb(const std::vector<uint8_t> &unit)
{
    if (!IsAvailable()) {
        return silenceDb;
    }
    if (av_new_packet(m_packet.get(), static_cast<int>(unit.size())) < 0) {
        throw std::bad_alloc();
    }
    std::memcpy(m_packet->data, unit.data(), unit.size());
    bool accepted = avcodec_send_packet(m_decoder.get(), m_packet.get()) == 0;
    av_packet_unref(m_packet.get());
    float peak = 0;
    int result = 0;
    while (accepted && (result = avcodec_receive_frame(m_decoder.get(), m_frame.get())) == 0) {
        peak = std::max(peak, Peak(*m_frame));
    }
    accepted = accepted && result == AVERROR(EAGAIN);
    if (!accepted) {
        return std::nullopt;
    }
    return peak > 0 ? std::max(silenceDb, 20.0 * std::log10(static_cast<double>(peak))) : silenceDb;
}

} // namespace velto::host
