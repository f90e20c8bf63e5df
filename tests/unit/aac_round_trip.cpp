#include "aac_round_trip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velto_test {
namespace {

constexpr uint32_t unitCapacity = 1536;

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

// Appends the packet of a successful Encode.
int32_t AppendUnit(int32_t result, const AVEncodePacket &packet, std::vector<EncodedUnit> &units)
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
    return AppendUnit(encoder.Encode(&frame, &packet), packet, units);
}

bool DrainEncoder(AACEncoder &encoder, std::vector<EncodedUnit> &units)
{
    AVEncodePacket packet;
    EXPECT_TRUE(packet.AllocBuffer(unitCapacity, false));
    int32_t result = 0;
    do {
        result = AppendUnit(encoder.Encode(nullptr, &packet), packet, units);
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
    AacSound sound(ConfigFor(param));
    for (const EncodedUnit &unit : units) {
        sound.Add(unit.bytes.data(), static_cast<uint32_t>(unit.bytes.size()));
    }
    return sound.Samples();
}

double SignalToNoiseDb(const Pcm &sent, const std::vector<float> &decoded, uint32_t channels)
{
    EXPECT_GE(decoded.size(), size_t{aacFrameLength} * channels + sent.size());
    std::vector<float> source;
    for (const int16_t value : sent) {
        source.push_back(static_cast<float>(value) / 32768.0F);
    }
    return SignalToNoiseDb(source, decoded, channels);
}

} // namespace velto_test
