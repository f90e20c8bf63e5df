// A sound as a microphone's packets, for the module's capture path and for its floor.
#pragma once

#include <windows.h>

#include <audioclient.h>
#include <endpointvolume.h>

#include <atomic>
#include <chrono>
#include <vector>

#include "tests/fakes/endpoint_volume_stubs.h"

namespace velto::bench {

constexpr uint32_t soundChannels = 2;

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
            begin = std::chrono::steady_clock::now();
        }
        *data = reinterpret_cast<BYTE *>(const_cast<float *>(&m_samples[m_next]));
        *frames = m_packetFrames;
        *flags = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override
    {
        m_next += size_t{frames} * soundChannels;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32 *frames) override
    {
        const bool more = m_next + size_t{m_packetFrames} * soundChannels <= m_samples.size();
        *frames = more ? m_packetFrames : 0;
        m_finished = !more;
        return S_OK;
    }

    std::chrono::steady_clock::time_point begin;

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

} // namespace velto::bench
