#include "check/portable/packet_decoder.h"

#include <cstring>
#include <new>
#include <stdexcept>

#include <fmt/format.h>

#include "velto-host/portable/aac_format.h"
#include "velto-host/portable/ffmpeg.h"
#include "velto/audio_handler.h"

namespace velto::check {
namespace {

bool SetConfiguration(AVCodecContext &decoder)
{
    const std::vector<uint8_t> bytes =
        velto::host::MakeSpecificConfig(velto::host::aacLowComplexity, VELTO_SAMPLE_RATE_HZ, VELTO_CHANNELS);
    decoder.extradata = static_cast<uint8_t *>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (decoder.extradata == nullptr) {
        return false;
    }
    std::memcpy(decoder.extradata, bytes.data(), bytes.size());
    decoder.extradata_size = static_cast<int>(bytes.size());
    return true;
}

} // namespace

void PacketDecoder::Closer::operator()(AVCodecContext *context) const
{
    avcodec_free_context(&context);
}

void PacketDecoder::Closer::operator()(AVFrame *frame) const
{
    av_frame_free(&frame);
}

void PacketDecoder::Closer::operator()(AVPacket *packet) const
{
    av_packet_free(&packet);
}

PacketDecoder::PacketDecoder() : m_frame(av_frame_alloc()), m_packet(av_packet_alloc())
{
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        throw std::runtime_error("FFmpeg has no AAC decoder");
    }
    m_context.reset(avcodec_alloc_context3(codec));
    if (m_context == nullptr || m_frame == nullptr || m_packet == nullptr || !SetConfiguration(*m_context)) {
        throw std::bad_alloc();
    }
    m_context->err_recognition = AV_EF_EXPLODE;
    const int result = avcodec_open2(m_context.get(), codec, nullptr);
    if (result < 0 || m_context->sample_fmt != AV_SAMPLE_FMT_FLTP) {
        throw std::runtime_error("FFmpeg's AAC decoder cannot be opened");
    }
}

PacketDecoder::~PacketDecoder() = default;

bool PacketDecoder::Decode(std::span<const uint8_t> unit, std::vector<float> &interleaved)
{
    const size_t before = interleaved.size();
    m_reason = Take(unit, interleaved);
    if (m_reason.empty()) {
        return true;
    }
    ++m_errors;
    interleaved.resize(before);
    return false;
}

// Returns the reason of a refusal, or nothing.
std::string PacketDecoder::Take(std::span<const uint8_t> unit, std::vector<float> &interleaved)
{
    if (unit.empty()) {
        return "it is empty";
    }
    if (velto::host::ParseAdtsHeader(unit)) {
        return "it has an ADTS header";
    }
    if (av_new_packet(m_packet.get(), static_cast<int>(unit.size())) < 0) {
        throw std::bad_alloc();
    }
    std::memcpy(m_packet->data, unit.data(), unit.size());
    int result = avcodec_send_packet(m_context.get(), m_packet.get());
    av_packet_unref(m_packet.get());
    if (result < 0) {
        return velto::host::FFmpegErrorText(result);
    }
    std::string reason = "it has no sound";
    int units = 0;
    while ((result = avcodec_receive_frame(m_context.get(), m_frame.get())) == 0) {
        ++units;
        reason = units == 1 ? Append(interleaved) : "it has more than one unit";
    }
    return result == AVERROR(EAGAIN) ? reason : velto::host::FFmpegErrorText(result);
}

// Adds the decoded frame.
std::string PacketDecoder::Append(std::vector<float> &interleaved) const
{
    const int decodedChannels = m_frame->ch_layout.nb_channels;
    if (m_frame->nb_samples != VELTO_UNIT_SAMPLES || m_frame->sample_rate != VELTO_SAMPLE_RATE_HZ ||
        decodedChannels != VELTO_CHANNELS) {
        return fmt::format("it decodes to {} samples at {} Hz in {} channel(s)", m_frame->nb_samples,
                           m_frame->sample_rate, decodedChannels);
    }
    for (int i = 0; i < m_frame->nb_samples; ++i) {
        for (int channel = 0; channel < decodedChannels; ++channel) {
            interleaved.push_back(reinterpret_cast<const float *>(m_frame->extended_data[channel])[i]);
        }
    }
    return {};
}

} // namespace velto::check
