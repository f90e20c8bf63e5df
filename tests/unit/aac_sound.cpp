#include "aac_sound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace velto_test {
namespace {

constexpr size_t primingValues = 2048; // 1024 samples of two channels

} // namespace

AacSound::AacSound()
    : m_decoder(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC))),
      m_frame(av_frame_alloc()),
      m_packet(av_packet_alloc())
{
    static const uint8_t config[] = {0x11, 0x90}; // AAC-LC, 48000 Hz, two channels
    m_decoder->extradata = static_cast<uint8_t *>(av_mallocz(sizeof config + AV_INPUT_BUFFER_PADDING_SIZE));
    std::copy(std::begin(config), std::end(config), m_decoder->extradata);
    m_decoder->extradata_size = sizeof config;
    EXPECT_EQ(avcodec_open2(m_decoder, nullptr, nullptr), 0);
}

AacSound::~AacSound()
{
    av_packet_free(&m_packet);
    av_frame_free(&m_frame);
    avcodec_free_context(&m_decoder);
}

void AacSound::Add(const uint8_t *data, uint32_t size)
{
    ASSERT_EQ(av_new_packet(m_packet, static_cast<int>(size)), 0);
    std::copy(data, data + size, m_packet->data);
    const int sent = avcodec_send_packet(m_decoder, m_packet);
    av_packet_unref(m_packet);
    ASSERT_EQ(sent, 0);
    ASSERT_EQ(avcodec_receive_frame(m_decoder, m_frame), 0);
    ASSERT_EQ(m_frame->ch_layout.nb_channels, 2);
    const auto *left = reinterpret_cast<const float *>(m_frame->data[0]);
    const auto *right = reinterpret_cast<const float *>(m_frame->data[1]);
    for (int i = 0; i < m_frame->nb_samples; ++i) {
        m_samples.push_back(left[i]);
        m_samples.push_back(right[i]);
    }
}

std::vector<float> AacSound::Samples() const
{
    return {m_samples.begin() + static_cast<std::ptrdiff_t>(std::min(primingValues, m_samples.size())),
            m_samples.end()};
}

double AacSound::SignalToNoiseDb(const std::vector<float> &source) const
{
    const std::vector<float> samples = Samples();
    const size_t count = std::min(samples.size(), source.size());
    double signal = 0;
    double noise = 0;
    for (size_t i = 0; i < count; ++i) {
        signal += double{source[i]} * source[i];
        noise += (double{samples[i]} - source[i]) * (double{samples[i]} - source[i]);
    }
    return 10 * std::log10(signal / (noise + 1e-12));
}

} // namespace velto_test
