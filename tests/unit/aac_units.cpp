#include "aac_units.h"

#include <cmath>
#include <functional>
#include <numbers>
#include <stdexcept>

#include "ffmpeg_pointers.h"

namespace velto_test {
namespace {

void Drain(AVCodecContext *encoder, AVPacket *packet, std::vector<AacUnit> &units)
{
    while (avcodec_receive_packet(encoder, packet) == 0) {
        units.emplace_back(packet->data, packet->data + packet->size);
        av_packet_unref(packet);
    }
}

double Sine(double periods)
{
    return 0.5 * std::sin(2 * std::numbers::pi * periods);
}

// `value(seconds, channel)` returns a sample between -1 and 1.
std::vector<AacUnit> EncodeSound(int count, int channels, const std::function<double(double, int)> &value)
{
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    const CodecContextPointer encoder(avcodec_alloc_context3(codec));
    av_channel_layout_default(&encoder->ch_layout, channels);
    encoder->sample_rate = 48000;
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->bit_rate = 128000;
    if (avcodec_open2(encoder.get(), codec, nullptr) < 0) {
        throw std::runtime_error("no AAC encoder");
    }
    const FramePointer frame(av_frame_alloc());
    const PacketPointer packet(av_packet_alloc());
    std::vector<AacUnit> units;
    int64_t position = 0;
    while (static_cast<int>(units.size()) < count) {
        frame->nb_samples = encoder->frame_size;
        frame->format = encoder->sample_fmt;
        frame->sample_rate = encoder->sample_rate;
        av_channel_layout_copy(&frame->ch_layout, &encoder->ch_layout);
        if (av_frame_get_buffer(frame.get(), 0) < 0) {
            throw std::runtime_error("no memory for a frame");
        }
        for (int i = 0; i < frame->nb_samples; ++i) {
            const double t = static_cast<double>(position + i) / encoder->sample_rate;
            for (int c = 0; c < channels; ++c) {
                reinterpret_cast<float *>(frame->data[c])[i] = static_cast<float>(value(t, c));
            }
        }
        frame->pts = position;
        position += frame->nb_samples;
        avcodec_send_frame(encoder.get(), frame.get());
        av_frame_unref(frame.get());
        Drain(encoder.get(), packet.get(), units);
    }
    units.resize(static_cast<size_t>(count));
    return units;
}

} // namespace

std::vector<AacUnit> EncodeTone(int count, int channels, double frequencyHz)
{
    return EncodeSound(count, channels, [=](double seconds, int) { return Sine(frequencyHz * seconds); });
}

std::vector<AacUnit> EncodeSweep(int count, double startHz)
{
    constexpr double risePerSecondHz = 500;
    return EncodeSound(count, 2, [=](double seconds, int channel) {
        const double start = startHz * (channel + 1);
        return Sine((start + risePerSecondHz / 2 * seconds) * seconds);
    });
}

} // namespace velto_test
