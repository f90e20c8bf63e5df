#include "aac_round_trip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mem.h>
}

namespace velto_test {
namespace {

constexpr uint32_t unitCapacity = 1536;

struct FreeContext {
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
};
struct FreePacket {
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};

std::vector<uint8_t> ConfigFor(const EncodeParam &param)
{
    AACEncoder encoder;
    uint32_t frameLength = 0;
    uint32_t maxPacketSize = 0;
    std::vector<uint8_t> config(8);
    uint32_t length = 0;
    EXPECT_TRUE(encoder.Initialize(param, frameLength, maxPacketSize));
    EXPECT_TRUE(encoder.GetDecoderSpecificInfo(config.data(), 8, length));
    config.resize(length);
    return config;
}

int32_t Keep(int32_t result, const AVEncodePacket &packet, std::vector<EncodedUnit> &units)
{
    EXPECT_EQ(packet.size, static_cast<uint32_t>(std::max(result, 0)));
    if (result > 0) {
        units.push_back({{packet.data, packet.data + packet.size}, packet.timeStamp});
    }
    return result;
}

} // namespace

EncodeParam StereoParam()
{
    return {48000, 3, 128000, 1, 2};
}
EncodeParam MonoParam()
{
    return {48000, 4, 96000, 1, 2};
}

Pcm MakePcm(size_t samples, uint32_t channels, const std::function<double(size_t, uint32_t)> &value)
{
    Pcm pcm;
    pcm.reserve(samples * channels);
    for (size_t i = 0; i < samples; ++i) {
        for (uint32_t channel = 0; channel < channels; ++channel) {
            pcm.push_back(static_cast<int16_t>(std::clamp(value(i, channel) * 32768, -32768.0, 32767.0)));
        }
    }
    return pcm;
}

double Sine(size_t position, double frequencyHz, double rateHz)
{
    return std::sin(2 * std::numbers::pi * frequencyHz * static_cast<double>(position) / rateHz);
}

int32_t EncodeSamples(AACEncoder &encoder, const int16_t *pcm, size_t samples, uint32_t channelCode,
                      std::vector<EncodedUnit> &units)
{
    AudioFrame frame;
    AVEncodePacket packet;
    EXPECT_TRUE(frame.AllocBuffer(48000, aacFrameLength, channelCode, PCMFormat::S16));
    EXPECT_TRUE(packet.AllocBuffer(unitCapacity, false));
    std::copy_n(pcm, samples * frame.channelCount, frame.samples);
    frame.fillCount = static_cast<uint32_t>(samples);
    return Keep(encoder.Encode(&frame, &packet), packet, units);
}

bool DrainEncoder(AACEncoder &encoder, std::vector<EncodedUnit> &units)
{
    AVEncodePacket packet;
    EXPECT_TRUE(packet.AllocBuffer(unitCapacity, false));
    int32_t result = 0;
    do {
        result = Keep(encoder.Encode(nullptr, &packet), packet, units);
    } while (result > 0);
    return result == 0;
}

std::vector<EncodedUnit> EncodePcm(const EncodeParam &param, const Pcm &pcm)
{
    AACEncoder encoder;
    uint32_t frameLength = 0;
    uint32_t maxPacketSize = 0;
    EXPECT_TRUE(encoder.Initialize(param, frameLength, maxPacketSize));
    EXPECT_EQ(frameLength, aacFrameLength);
    const uint32_t channels = ChannelCountOf(param.channelCode);
    std::vector<EncodedUnit> units;
    const size_t samples = pcm.size() / channels;
    for (size_t first = 0; first < samples; first += frameLength) {
        const size_t count = std::min<size_t>(frameLength, samples - first);
        EXPECT_GE(EncodeSamples(encoder, pcm.data() + first * channels, count, param.channelCode, units), 0);
    }
    EXPECT_TRUE(DrainEncoder(encoder, units));
    return units;
}

std::vector<float> DecodeUnits(const EncodeParam &param, const std::vector<EncodedUnit> &units)
{
    const std::vector<uint8_t> config = ConfigFor(param);
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    const std::unique_ptr<AVCodecContext, FreeContext> decoder(avcodec_alloc_context3(codec));
    decoder->extradata = static_cast<uint8_t *>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::copy(config.begin(), config.end(), decoder->extradata);
    decoder->extradata_size = static_cast<int>(config.size());
    EXPECT_EQ(avcodec_open2(decoder.get(), codec, nullptr), 0);
    const std::unique_ptr<AVFrame, FreeFrame> frame(av_frame_alloc());
    const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    std::vector<float> pcm;
    for (const EncodedUnit &unit : units) {
        EXPECT_EQ(av_new_packet(packet.get(), static_cast<int>(unit.bytes.size())), 0);
        std::copy(unit.bytes.begin(), unit.bytes.end(), packet->data);
        EXPECT_EQ(avcodec_send_packet(decoder.get(), packet.get()), 0);
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
            for (int i = 0; i < frame->nb_samples; ++i) {
                for (int channel = 0; channel < frame->ch_layout.nb_channels; ++channel) {
                    pcm.push_back(reinterpret_cast<const float *>(frame->extended_data[channel])[i]);
                }
            }
        }
    }
    return pcm;
}

double SignalToNoiseDb(const Pcm &sent, const std::vector<float> &decoded, uint32_t channels)
{
    const size_t before = size_t{aacFrameLength} * channels;
    EXPECT_GE(decoded.size(), before + sent.size());
    double signal = 0;
    double noise = 0;
    for (size_t i = 0; i < sent.size() && before + i < decoded.size(); ++i) {
        const double value = sent[i] / 32768.0;
        signal += value * value;
        noise += (value - decoded[before + i]) * (value - decoded[before + i]);
    }
    return 10 * std::log10(signal / noise);
}

} // namespace velto_test
