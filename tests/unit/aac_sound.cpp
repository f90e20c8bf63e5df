#include "aac_sound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/mem.h>
}

namespace velto_test {

AacSound::AacSound(const std::vector<uint8_t> &config)
    : m_decoder(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC)))
{
    m_decoder->extradata = static_cast<uint8_t *>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::copy(config.begin(), config.end(), m_decoder->extradata);
    m_decoder->extradata_size = static_cast<int>(config.size());
    EXPECT_EQ(avcodec_open2(m_decoder.get(), nullptr, nullptr), 0);
    m_channels = m_decoder->ch_layout.nb_channels;
}

void AacSound::Add(const uint8_t *data, uint32_t size)
{
    ASSERT_EQ(av_new_packet(m_packet.get(), static_cast<int>(size)), 0);
    std::copy(data, data + size, m_packet->data);
    const int sent = avcodec_send_packet(m_decoder.get(), m_packet.get());
    av_packet_unref(m_packet.get());
    ASSERT_EQ(sent, 0);
    ASSERT_EQ(avcodec_receive_frame(m_decoder.get(), m_frame.get()), 0);
    ASSERT_EQ(m_frame->ch_layout.nb_channels, m_channels);
    for (int i = 0; i < m_frame->nb_samples; ++i) {
        for (int channel = 0; channel < m_channels; ++channel) {
            m_samples.push_back(reinterpret_cast<const float *>(m_frame->extended_data[channel])[i]);
        }
    }
}

double AacSound::SignalToNoiseDb(const std::vector<float> &source) const
{
    return velto_test::SignalToNoiseDb(source, m_samples, static_cast<uint32_t>(m_channels));
}

double SignalToNoiseDb(const std::vector<float> &source, const std::vector<float> &decoded, uint32_t channels)
{
    const size_t priming = size_t{aacFrameLength} * channels;
    EXPECT_GT(decoded.size(), priming);
    double signal = 0;
    double noise = 0;
    for (size_t i = 0; i < source.size() && priming + i < decoded.size(); ++i) {
        const double difference = double{decoded[priming + i]} - source[i];
        signal += double{source[i]} * source[i];
        noise += difference * difference;
    }
    return 10 * std::log10(signal / (noise + 1e-12));
}

} // namespace velto_test
