#include "codec/aac_encoder.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sstream>

#include "logging/logger.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace {

constexpr uint32_t lowComplexity = 2;        // MPEG-4 audio object type AAC-LC
constexpr uint32_t maxBytesPerChannel = 768; // 6144 bits, the limit for an AAC-LC access unit
constexpr uint32_t minBitRatePerChannel = 5; // at lower rates, FFmpeg's encoder leaves no bandwidth for sound
constexpr float fullScale = 32768.0F;

template <typename... Values>
void LogError(const Values &...values)
{
    std::wstringstream text;
    (text << ... << values);
    Logger("AACEncoder").Log(LOG_LEVEL_ERROR, text);
}

bool Refuse(const char *field, uint32_t value)
{
    LogError("Initialize: ", field, " cannot be ", value);
    return false;
}

bool SupportsRate(const AVCodec &codec, uint32_t rateHz)
{
    for (const int *rate = codec.supported_samplerates; *rate != 0; ++rate) {
        if (static_cast<uint32_t>(*rate) == rateHz) {
            return true;
        }
    }
    return false;
}

// The bit rate at which every access unit has its maximum size.
uint64_t MaxBitRate(const EncodeParam &param, uint32_t frameLength)
{
    return uint64_t{maxBytesPerChannel} * 8 * ChannelCountOf(param.channelCode) * param.sampleRateHz /
           frameLength;
}

bool CanEncode(const AVCodec &codec, const EncodeParam &param)
{
    constexpr uint32_t frameLength = 1024; // of AAC-LC
    if (!SupportsRate(codec, param.sampleRateHz)) {
        return Refuse("sampleRateHz", param.sampleRateHz);
    }
    if (ChannelCountOf(param.channelCode) == 0) {
        return Refuse("channelCode", param.channelCode);
    }
    if (param.bitRate < minBitRatePerChannel * ChannelCountOf(param.channelCode) ||
        param.bitRate > MaxBitRate(param, frameLength)) {
        return Refuse("bitRate", param.bitRate);
    }
    if (param.pcmFormat != static_cast<uint32_t>(PCMFormat::S16)) {
        return Refuse("pcmFormat", param.pcmFormat);
    }
    if (param.objectType != lowComplexity) {
        return Refuse("objectType", param.objectType);
    }
    return true;
}

} // namespace

struct AACEncoder::State {
    AVCodecContext *context = nullptr;
    AVFrame *planar = nullptr; // input of FFmpeg's encoder: one plane of floats per channel
    AVPacket *encoded = nullptr;
    int64_t position = 0;  // samples per channel sent so far
    bool ended = false;    // a short frame was sent, so it was the last one
    bool draining = false; // FFmpeg was sent the end of the stream, and refuses frames

    State() = default;
    State(const State &) = delete;
    State &operator=(const State &) = delete;
    ~State()
    {
        av_packet_free(&encoded);
        av_frame_free(&planar);
        avcodec_free_context(&context);
    }

    int Open(const AVCodec &codec, const EncodeParam &param);
    int AllocatePlanes();
    uint32_t MaxPacketSize() const;
    bool Fits(const AudioFrame &frame) const;
    int Send(const AudioFrame &frame);
    int Drain();
    int32_t Receive(AVEncodePacket &packet);
};

// Returns 0 or FFmpeg's error.
int AACEncoder::State::Open(const AVCodec &codec, const EncodeParam &param)
{
    context = avcodec_alloc_context3(&codec);
    planar = av_frame_alloc();
    encoded = av_packet_alloc();
    if (context == nullptr || planar == nullptr || encoded == nullptr) {
        return AVERROR(ENOMEM);
    }
    av_channel_layout_from_mask(&context->ch_layout, param.channelCode);
    context->sample_rate = static_cast<int>(param.sampleRateHz);
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->bit_rate = param.bitRate;
    context->profile = FF_PROFILE_AAC_LOW;
    context->time_base = {1, context->sample_rate};
    context->log_level_offset = AV_LOG_INFO; // keeps FFmpeg's messages off the host's console
    // Takes half the processor time of the default coder, at the same noise-to-mask ratio.
    av_opt_set(context->priv_data, "aac_coder", "fast", 0);
    const int result = avcodec_open2(context, &codec, nullptr);
    return result != 0 ? result : AllocatePlanes();
}

int AACEncoder::State::AllocatePlanes()
{
    planar->format = context->sample_fmt;
    planar->nb_samples = context->frame_size;
    const int result = av_channel_layout_copy(&planar->ch_layout, &context->ch_layout);
    return result != 0 ? result : av_frame_get_buffer(planar, 0);
}

uint32_t AACEncoder::State::MaxPacketSize() const
{
    return maxBytesPerChannel * static_cast<uint32_t>(context->ch_layout.nb_channels);
}

bool AACEncoder::State::Fits(const AudioFrame &frame) const
{
    return frame.fillCount != 0 && frame.fillCount <= frame.FrameLength() &&
           frame.fillCount <= static_cast<uint32_t>(context->frame_size) &&
           frame.channelCount == static_cast<uint32_t>(context->ch_layout.nb_channels);
}

int AACEncoder::State::Send(const AudioFrame &frame)
{
    if (!Fits(frame)) {
        return AVERROR(EINVAL);
    }
    if (ended) {
        return AVERROR_EOF; // FFmpeg would insert a gap before this frame
    }
    // Copies nothing unless the encoder still has a reference to the previous frame.
    const int result = av_frame_make_writable(planar);
    if (result != 0) {
        return result;
    }
    for (uint32_t channel = 0; channel != frame.channelCount; ++channel) {
        auto *plane = reinterpret_cast<float *>(planar->data[channel]);
        const int16_t *sample = frame.samples + channel;
        for (uint32_t i = 0; i != frame.fillCount; ++i, sample += frame.channelCount) {
            plane[i] = static_cast<float>(*sample) / fullScale;
        }
    }
    planar->nb_samples = static_cast<int>(frame.fillCount);
    planar->pts = position;
    const int sent = avcodec_send_frame(context, planar);
    if (sent == 0) {
        position += frame.fillCount;
        ended = planar->nb_samples != context->frame_size;
    }
    return sent;
}

int AACEncoder::State::Drain()
{
    if (draining) {
        return 0;
    }
    draining = true;
    return avcodec_send_frame(context, nullptr);
}

int32_t AACEncoder::State::Receive(AVEncodePacket &packet)
{
    // Releases the previous packet first.
    const int result = avcodec_receive_packet(context, encoded);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
        return 0;
    }
    if (result != 0) {
        return result;
    }
    const auto bytes = static_cast<uint32_t>(encoded->size);
    if (bytes > MaxPacketSize()) {
        LogError("Encode: a packet of ", bytes, " bytes exceeds ", MaxPacketSize());
        return AVERROR(ERANGE);
    }
    std::memcpy(packet.data, encoded->data, bytes);
    packet.size = bytes;
    packet.timeStamp = encoded->pts;
    return static_cast<int>(bytes);
}

AACEncoder::AACEncoder() = default;
AACEncoder::~AACEncoder() = default;

bool AACEncoder::Initialize(const EncodeParam &param, uint32_t &frameLength, uint32_t &maxPacketSize)
{
    Close();
    frameLength = 0;
    maxPacketSize = 0;
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        LogError("Initialize: this FFmpeg has no AAC encoder");
        return false;
    }
    if (!CanEncode(*codec, param)) {
        return false;
    }
    std::unique_ptr<State> state(new (std::nothrow) State);
    const int result = state ? state->Open(*codec, param) : AVERROR(ENOMEM);
    if (result != 0) {
        LogError("Initialize: the encoder does not open, error ", result);
        return false;
    }
    m_state = std::move(state);
    frameLength = static_cast<uint32_t>(m_state->context->frame_size);
    maxPacketSize = m_state->MaxPacketSize();
    return true;
}

int32_t AACEncoder::Encode(const AudioFrame *frame, AVEncodePacket *packet)
{
    if (!m_state || packet == nullptr) {
        return AVERROR(EINVAL);
    }
    packet->size = 0;
    if (packet->Capacity() < m_state->MaxPacketSize()) {
        return AVERROR(EINVAL);
    }
    const int result = frame != nullptr ? m_state->Send(*frame) : m_state->Drain();
    return result != 0 ? result : m_state->Receive(*packet);
}

bool AACEncoder::GetDecoderSpecificInfo(uint8_t *config, uint32_t capacity, uint32_t &length) const
{
    length = 0;
    if (!m_state || config == nullptr) {
        return false;
    }
    const auto bytes = static_cast<uint32_t>(m_state->context->extradata_size);
    if (bytes == 0 || bytes > capacity) {
        return false;
    }
    std::memcpy(config, m_state->context->extradata, bytes);
    length = bytes;
    return true;
}

void AACEncoder::Close()
{
    m_state.reset();
}
