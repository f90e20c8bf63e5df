#include "bench/module_recorder.h"

#include <chrono>
#include <stdexcept>

#include "tests/fakes/endpoint_volume_stubs.h"

namespace velto {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t channels = 2;

template <typename Interface>
class WithoutReferences : public Interface {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void **) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

// A capture client that has all packets of a sound ready at once. Sets `finished` after the last one.
class SoundClient final : public WithoutReferences<IAudioCaptureClient> {
public:
    SoundClient(const std::vector<float> &samples, uint32_t packetFrames, std::atomic<bool> &finished)
        : m_samples(samples), m_packetFrames(packetFrames), m_finished(finished)
    {
    }

    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags, UINT64 *,
                                        UINT64 *) override
    {
        if (m_next == 0) {
            begin = Clock::now();
        }
        *data = reinterpret_cast<BYTE *>(const_cast<float *>(&m_samples[m_next]));
        *frames = m_packetFrames;
        *flags = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override
    {
        m_next += size_t{frames} * channels;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32 *frames) override
    {
        const bool more = m_next + size_t{m_packetFrames} * channels <= m_samples.size();
        *frames = more ? m_packetFrames : 0;
        m_finished = !more;
        return S_OK;
    }

    Clock::time_point begin;

private:
    const std::vector<float> &m_samples;
    const uint32_t m_packetFrames;
    std::atomic<bool> &m_finished;
    size_t m_next = 0;
};

class OpenVolume final : public fakes::EndpointVolumeStubs<WithoutReferences<IAudioEndpointVolume>> {
public:
    HRESULT STDMETHODCALLTYPE GetMute(BOOL *) override { return S_OK; }
};

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
    SoundClient client(samples, packetFrames, m_capture.m_stop);
    UnmutedVolume volume;
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
    return std::chrono::duration<double>(Clock::now() - client.begin).count();
}

} // namespace velto
