#include "check/portable/built_in_sound.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <new>
#include <numbers>
#include <stdexcept>
#include <utility>

#include "velto-host/portable/aac_format.h"
#include "velto-host/portable/ffmpeg.h"
#include "velto/audio_handler.h"

namespace velto::check {
namespace {

constexpr double rateHz = VELTO_SAMPLE_RATE_HZ;
constexpr size_t channels = VELTO_CHANNELS;
constexpr int64_t bitsPerSecond = 128000;

// Values between 0 and 1 that follow each other over time, with straight lines between them.
template <size_t Count>
double Glide(const std::array<double, Count> &values, double position)
{
    const auto whole = static_cast<size_t>(position);
    const double part = position - static_cast<double>(whole);
    return values[whole % Count] * (1 - part) + values[(whole + 1) % Count] * part;
}

// A resonance of the mouth: a filter with two poles.
class Formant {
public:
    double Filter(double input, double frequencyHz, double bandwidthHz)
    {
        const double radius = std::exp(-std::numbers::pi * bandwidthHz / rateHz);
        const double angle = 2 * std::numbers::pi * frequencyHz / rateHz;
        const double output =
            (1 - radius) * input + 2 * radius * std::cos(angle) * m_last - radius * radius * m_beforeLast;
        m_beforeLast = m_last;
        m_last = output;
        return output;
    }

private:
    double m_last = 0;
    double m_beforeLast = 0;
};

// A voice that changes from vowel to vowel: glottal pulses, filtered by two formants.
class Voice {
public:
    double Next()
    {
        constexpr double vowelsPerSecond = 4;
        // Pitch, and formants of five vowels, in Hz.
        constexpr std::array<double, 7> pitches{110, 180, 140, 210, 95, 160, 125};
        constexpr std::array<double, 5> firstFormants{730, 270, 570, 300, 530};
        constexpr std::array<double, 5> secondFormants{1090, 2290, 840, 870, 1840};

        const double position = static_cast<double>(m_sample++) / rateHz * vowelsPerSecond;
        m_phase += Glide(pitches, position) / rateHz;
        const bool isPulse = m_phase >= 1;
        if (isPulse) {
            m_phase -= 1;
        }
        const double pulse = isPulse ? 14.0 : 0.0;
        const double sound = m_first.Filter(pulse, Glide(firstFormants, position), 80) +
                             0.5 * m_second.Filter(pulse, Glide(secondFormants, position), 120);
        return std::clamp(sound * Loudness(position), -0.9, 0.9);
    }

private:
    // Each vowel rises and falls; every sixth one is a pause.
    static double Loudness(double position)
    {
        const double whole = std::floor(position);
        return std::fmod(whole, 6) == 5 ? 0 : std::sin(std::numbers::pi * (position - whole));
    }

    uint64_t m_sample = 0;
    double m_phase = 0;
    Formant m_first;
    Formant m_second;
};

struct Closer {
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};

void ThrowIfFailed(int result)
{
    if (result < 0) {
        throw std::runtime_error("FFmpeg's AAC encoder: " + velto::host::FFmpegErrorText(result));
    }
}

class Encoder {
public:
    Encoder() : m_frame(av_frame_alloc()), m_packet(av_packet_alloc())
    {
        const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
        if (codec == nullptr) {
            throw std::runtime_error("FFmpeg has no AAC encoder");
        }
        m_context.reset(avcodec_alloc_context3(codec));
        if (m_context == nullptr || m_frame == nullptr || m_packet == nullptr) {
            throw std::bad_alloc();
        }
        m_context->sample_rate = VELTO_SAMPLE_RATE_HZ;
        m_context->sample_fmt = AV_SAMPLE_FMT_FLTP;
        m_context->bit_rate = bitsPerSecond;
        m_context->flags |= AV_CODEC_FLAG_BITEXACT; // no version text in the first unit
        av_channel_layout_default(&m_context->ch_layout, channels);
        ThrowIfFailed(avcodec_open2(m_context.get(), codec, nullptr));
    }

    // Encodes up to 1024 interleaved sample pairs.
    void Add(std::span<const float> interleaved)
    {
        m_frame->nb_samples = m_context->frame_size;
        m_frame->format = m_context->sample_fmt;
        m_frame->sample_rate = m_context->sample_rate;
        m_frame->pts = m_position;
        ThrowIfFailed(av_channel_layout_copy(&m_frame->ch_layout, &m_context->ch_layout));
        ThrowIfFailed(av_frame_get_buffer(m_frame.get(), 0));
        for (size_t channel = 0; channel < channels; ++channel) {
            auto *const plane = reinterpret_cast<float *>(m_frame->data[channel]);
            for (size_t i = 0; i < static_cast<size_t>(m_frame->nb_samples); ++i) {
                const size_t place = i * channels + channel;
                plane[i] = place < interleaved.size() ? interleaved[place] : 0.0F;
            }
        }
        m_position += m_frame->nb_samples;
        ThrowIfFailed(avcodec_send_frame(m_context.get(), m_frame.get()));
        av_frame_unref(m_frame.get());
        TakeUnits();
    }

    AacUnits Finish()
    {
        ThrowIfFailed(avcodec_send_frame(m_context.get(), nullptr));
        TakeUnits();
        return std::move(m_units);
    }

private:
    void TakeUnits()
    {
        while (avcodec_receive_packet(m_context.get(), m_packet.get()) == 0) {
            m_units.emplace_back(m_packet->data, m_packet->data + m_packet->size);
            av_packet_unref(m_packet.get());
        }
    }

    std::unique_ptr<AVCodecContext, Closer> m_context;
    std::unique_ptr<AVFrame, Closer> m_frame;
    std::unique_ptr<AVPacket, Closer> m_packet;
    int64_t m_position = 0; // in samples per channel
    AacUnits m_units;
};

} // namespace

std::vector<float> SpeechLikeSound(size_t frames)
{
    constexpr size_t delayOfRight = 24; // half a millisecond, as from a source on the left
    Voice voice;
    std::vector<float> sound(frames * channels);
    for (size_t frame = 0; frame < frames; ++frame) {
        sound[frame * channels] = static_cast<float>(voice.Next());
        if (frame >= delayOfRight) {
            sound[frame * channels + 1] = 0.7F * sound[(frame - delayOfRight) * channels];
        }
    }
    return sound;
}

AacUnits EncodeStereo(std::span<const float> interleaved)
{
    constexpr size_t valuesPerUnit = VELTO_UNIT_SAMPLES * channels;
    Encoder encoder;
    for (size_t first = 0; first < interleaved.size(); first += valuesPerUnit) {
        encoder.Add(interleaved.subspan(first, std::min(valuesPerUnit, interleaved.size() - first)));
    }
    return encoder.Finish();
}

AacUnits SpeechLikeUnits(size_t count)
{
    AacUnits units = EncodeStereo(SpeechLikeSound((count - 1) * VELTO_UNIT_SAMPLES));
    if (units.size() < count) {
        throw std::runtime_error("FFmpeg's AAC encoder returned too few units");
    }
    units.resize(count);
    return units;
}

std::vector<uint8_t> WithAdtsHeader(std::span<const uint8_t> unit)
{
    std::vector<uint8_t> bytes =
        velto::host::MakeAdtsHeader(VELTO_SAMPLE_RATE_HZ, VELTO_CHANNELS, unit.size());
    bytes.insert(bytes.end(), unit.begin(), unit.end());
    return bytes;
}

std::vector<uint8_t> Damaged(std::span<const uint8_t> unit, Random &random)
{
    std::vector<uint8_t> bytes(unit.begin(), unit.end());
    const uint32_t kind = random.Below(3);
    if (kind != 0) {
        for (uint32_t left = 1 + random.Below(8); left > 0; --left) {
            bytes[random.Below(static_cast<uint32_t>(bytes.size()))] ^=
                static_cast<uint8_t>(1 + random.Below(255));
        }
    }
    if (kind != 1) {
        bytes.resize(1 + random.Below(static_cast<uint32_t>(bytes.size())));
    }
    return bytes;
}

std::vector<uint8_t> Undecodable(std::span<const uint8_t> unit)
{
    // A coupling element, which a stereo stream without its description cannot have.
    constexpr uint8_t couplingElement = 2 << 5;
    std::vector<uint8_t> bytes(unit.begin(), unit.end());
    bytes[0] = couplingElement | 0x1F;
    return bytes;
}

} // namespace velto::check
