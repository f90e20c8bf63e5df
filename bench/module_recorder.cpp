#include "bench/module_recorder.h"

#include <chrono>
#include <stdexcept>

#include "bench/sound_client.h"

namespace velto {
namespace {

constexpr uint32_t channels = 2;

} // namespace

AudioCaptureProbe::AudioCaptureProbe(uint32_t rateHz)
{
    m_capture.SetTarget(48000, channels, 1);
    m_capture.m_captured = {rateHz, channels, AV_SAMPLE_FMT_FLT};
    m_capture.m_timestampTimeBaseHz = 1000000;
    const EncodeParam param{48000, 3, 128000, static_cast<uint32_t>(PCMFormat::S16), 2};
    uint32_t maxPacketSize = 0;
    if (!m_capture.InitSwr() ||
        !m_capture.m_encoder.Initialize(param, m_capture.m_frameLength, maxPacketSize) ||
        !m_capture.m_frame.AllocBuffer(rateHz, m_capture.m_frameLength, 3, PCMFormat::S16)) {
        throw std::runtime_error("the capture's converter or encoder cannot be opened");
    }
    m_capture.m_packets.SetPacketBufferSize(maxPacketSize);
    if (!m_capture.m_packets.Init(PacketPoolSize(48000, m_capture.m_frameLength))) {
        throw std::runtime_error("no memory for packets");
    }
}

double AudioCaptureProbe::Record(const std::vector<float> &samples, uint32_t packetFrames)
{
    bench::SoundClient client(samples, packetFrames, m_capture.m_stop);
    bench::OpenVolume volume;
    m_capture.m_stop = false;
    m_capture.LoopGetAudioBuffer(&client, &volume);
    m_capture.m_stop = false;
    uint8_t unit[8192];
    while (m_capture.m_packets.DataCount() > 0) {
        uint32_t size = 3840;
        m_capture.Read(unit, size);
        m_bytes += size;
        ++m_packets;
    }
    m_capture.m_stop = true;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - client.begin).count();
}

} // namespace velto
