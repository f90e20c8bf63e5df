// The settings of FFmpeg's encoder: packets are compared with those of an encoder that the test sets up.
#include <gtest/gtest.h>

#include <random>

#include "aac_round_trip.h"
#include "ffmpeg_pointers.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace {

using namespace velto_test;

CodecContextPointer OpenStereoEncoder(const char *coder)
{
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    CodecContextPointer context(avcodec_alloc_context3(codec));
    av_channel_layout_default(&context->ch_layout, 2);
    context->sample_rate = 48000;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->bit_rate = 128000;
    context->profile = FF_PROFILE_AAC_LOW;
    context->log_level_offset = AV_LOG_INFO; // keeps messages off the console
    EXPECT_EQ(av_opt_set(context->priv_data, "aac_coder", coder, 0), 0);
    EXPECT_EQ(avcodec_open2(context.get(), codec, nullptr), 0);
    return context;
}

// Encodes whole frames of stereo sound, without draining the encoder.
std::vector<std::vector<uint8_t>> EncodeWithCoder(const char *coder, const Pcm &pcm)
{
    const CodecContextPointer context = OpenStereoEncoder(coder);
    const FramePointer frame(av_frame_alloc());
    frame->format = context->sample_fmt;
    frame->nb_samples = context->frame_size;
    EXPECT_EQ(av_channel_layout_copy(&frame->ch_layout, &context->ch_layout), 0);
    EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    const PacketPointer packet(av_packet_alloc());
    std::vector<std::vector<uint8_t>> packets;
    for (size_t first = 0; first + 2 * aacFrameLength <= pcm.size(); first += 2 * aacFrameLength) {
        EXPECT_EQ(av_frame_make_writable(frame.get()), 0);
        for (size_t i = 0; i < 2 * aacFrameLength; ++i) {
            reinterpret_cast<float *>(frame->data[i % 2])[i / 2] =
                static_cast<float>(pcm[first + i]) / 32768.0F;
        }
        frame->pts = static_cast<int64_t>(first / 2);
        EXPECT_EQ(avcodec_send_frame(context.get(), frame.get()), 0);
        while (avcodec_receive_packet(context.get(), packet.get()) == 0) {
            packets.emplace_back(packet->data, packet->data + packet->size);
            av_packet_unref(packet.get());
        }
    }
    return packets;
}

// A chord with some noise.
Pcm RichSound()
{
    std::mt19937 random(1);
    return MakePcm(20 * aacFrameLength, 2, [&](size_t i, uint32_t channel) {
        const double noise = static_cast<double>(random()) / 2147483648.0 - 1;
        return 0.3 * Sine(i, 440) + 0.2 * Sine(i, channel == 0 ? 1300 : 2100) + 0.1 * noise;
    });
}

TEST(AacEncoderSettings, EncodesLowComplexityStereoWithFastCoder)
{
    const Pcm pcm = RichSound();
    const std::vector<EncodedUnit> units = EncodePcm(StereoParam(), pcm);
    const std::vector<std::vector<uint8_t>> fast = EncodeWithCoder("fast", pcm);
    ASSERT_EQ(fast.size(), 19U);
    ASSERT_GT(units.size(), fast.size()) << "the module's encoder was drained";
    for (size_t i = 0; i < fast.size(); ++i) {
        EXPECT_EQ(units[i].bytes, fast[i]) << i;
    }
    EXPECT_FALSE(EncodeWithCoder("twoloop", pcm) == fast) << "the sound is encoded alike by both coders";
}

} // namespace
