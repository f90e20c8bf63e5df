#include "bench/capture_floor.h"

#include <algorithm>
#include <cstring>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

#include "bench/bare_encoder.h"

namespace velto::bench {
namespace {

constexpr int encodedRateHz = 48000;
constexpr size_t poolPackets = 480; // more than a recording has
constexpr size_t maxPacketBytes = 768 * soundChannels;

int16_t ToPcm16(float sample)
{
    return static_cast<int16_t>(std::clamp(sample, -1.0F, 1.0F) * 32767.0F);
}

} // namespace

CaptureFloor::CaptureFloor(uint32_t rateHz)
    : m_rateHz(rateHz),
      m_codec(OpenAacEncoder()),
      m_frame(AllocateEncoderFrame(*m_codec)),
      m_packet(av_packet_alloc()),
      m_samples(static_cast<size_t>(m_codec->frame_size) * soundChannels),
      m_unused(poolPackets, std::vector<uint8_t>(maxPacketBytes))
{
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    Require(m_packet != nullptr, "allocating a packet");
    Require(swr_alloc_set_opts2(&m_converter, &stereo, AV_SAMPLE_FMT_FLT, encodedRateHz, &stereo,
                                AV_SAMPLE_FMT_FLT, static_cast<int>(rateHz), 0, nullptr) == 0 &&
                swr_init(m_converter) == 0,
            "opening the converter");
}

CaptureFloor::~CaptureFloor()
{
    swr_free(&m_converter);
    av_packet_free(&m_packet);
    av_frame_free(&m_frame);
    avcodec_free_context(&m_codec);
}

double CaptureFloor::Record(const std::vector<float> &samples, uint32_t packetFrames)
{
    std::atomic<bool> finished{false};
    SoundClient client(samples, packetFrames, finished);
    OpenVolume volume;
    m_filled = 0; // the capture loop, too, begins with an empty frame
    while (RecordPacket(client, volume)) {
    }
    ReadAll();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - client.begin).count();
}

// True if another packet is ready.
bool CaptureFloor::RecordPacket(SoundClient &client, OpenVolume &volume)
{
    BYTE *data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 devicePosition = 0;
    UINT64 counterPosition = 0;
    client.GetBuffer(&data, &frames, &flags, &devicePosition, &counterPosition);
    BOOL muted = FALSE;
    volume.GetMute(&muted);

    const auto capacity = static_cast<int>(
        av_rescale_rnd(swr_get_delay(m_converter, m_rateHz) + frames, encodedRateHz, m_rateHz, AV_ROUND_UP));
    uint8_t **planes = nullptr;
    Require(av_samples_alloc_array_and_samples(&planes, nullptr, soundChannels, capacity, AV_SAMPLE_FMT_FLT,
                                               0) >= 0,
            "allocating samples");
    const uint8_t *source = data;
    const int converted = swr_convert(m_converter, planes, capacity, &source, static_cast<int>(frames));
    Require(converted >= 0, "converting");
    Append(reinterpret_cast<const float *>(planes[0]), static_cast<size_t>(converted));
    av_freep(&planes[0]);
    av_freep(&planes);

    client.ReleaseBuffer(frames);
    UINT32 nextFrames = 0;
    client.GetNextPacketSize(&nextFrames);
    return nextFrames != 0;
}

void CaptureFloor::Append(const float *samples, size_t frames)
{
    size_t left = frames * soundChannels;
    while (left > 0) {
        const size_t count = std::min(left, m_samples.size() - m_filled);
        std::transform(samples, samples + count, m_samples.begin() + static_cast<std::ptrdiff_t>(m_filled),
                       ToPcm16);
        samples += count;
        left -= count;
        m_filled += count;
        if (m_filled == m_samples.size()) {
            EncodeFrame();
            m_filled = 0;
        }
    }
}

void CaptureFloor::EncodeFrame()
{
    Require(av_frame_make_writable(m_frame) == 0, "allocating samples");
    for (size_t channel = 0; channel < soundChannels; ++channel) {
        auto *plane = reinterpret_cast<float *>(m_frame->data[channel]);
        for (size_t at = channel; at < m_samples.size(); at += soundChannels) {
            *plane++ = static_cast<float>(m_samples[at]) / 32768.0F;
        }
    }
    Require(avcodec_send_frame(m_codec, m_frame) == 0, "encoding");
    if (avcodec_receive_packet(m_codec, m_packet) != 0) {
        return;
    }
    std::vector<uint8_t> packet;
    {
        const std::lock_guard lock(m_mutex);
        packet = std::move(m_unused.front());
        m_unused.pop_front();
    }
    const auto size = static_cast<size_t>(m_packet->size);
    packet.assign(m_packet->data, m_packet->data + size);
    av_packet_unref(m_packet);
    const std::lock_guard lock(m_mutex);
    m_queue.push_back(std::move(packet));
}

void CaptureFloor::ReadAll()
{
    uint8_t unit[8192];
    for (;;) {
        const std::lock_guard lock(m_mutex);
        if (m_queue.empty()) {
            return;
        }
        std::memcpy(unit, m_queue.front().data(), m_queue.front().size());
        m_bytes += m_queue.front().size();
        ++m_packets;
        m_unused.push_back(std::move(m_queue.front()));
        m_queue.pop_front();
    }
}

} // namespace velto::bench
