#include "check/sound_player.h"

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>
#include <mmreg.h>
#include <wrl/client.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <fmt/format.h>

#include "check/default_endpoint.h"
#include "check/portable/watermark.h"
#include "check/speaker_stream.h"
#include "velto-host/com_apartment.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Microsoft::WRL::ComPtr;

constexpr REFERENCE_TIME bufferTime = 10'000'000; // 1 s in units of 100 ns: a busy PC delays this thread
constexpr DWORD pollMs = 10;
constexpr auto longestStall = 5s; // without a frame played
constexpr size_t channels = 2;
// MinGW's headers lack AUDCLNT_STREAMFLAGS_SRC_DEFAULT_QUALITY.
constexpr DWORD defaultQuality = 0x08000000;

void ThrowIfFailed(HRESULT result, const char *step)
{
    if (FAILED(result)) {
        throw SoundPlayerError(
            fmt::format("{}: {}", step, host::SystemErrorText(static_cast<uint32_t>(result))));
    }
}

// The one that is recorded.
ComPtr<IMMDevice> DefaultLoudspeaker()
{
    ComPtr<IMMDevice> device;
    ThrowIfFailed(FindDefaultEndpoint(eRender, &device), "cannot find the default loudspeaker");
    return device;
}

WAVEFORMATEX StereoFloat()
{
    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    format.nChannels = channels;
    format.nSamplesPerSec = watermarkRateHz;
    format.wBitsPerSample = 8 * sizeof(float);
    format.nBlockAlign = channels * sizeof(float);
    format.nAvgBytesPerSec = format.nSamplesPerSec * format.nBlockAlign;
    return format;
}

class Player {
public:
    explicit Player(std::span<const float> interleaved) : m_rest(interleaved)
    {
        ThrowIfFailed(DefaultLoudspeaker()->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, &m_client),
                      "cannot activate the loudspeaker");
        const WAVEFORMATEX format = StereoFloat();
        ThrowIfFailed(m_client->Initialize(AUDCLNT_SHAREMODE_SHARED,
                                           AUDCLNT_STREAMFLAGS_AUTOCONVERTPCM | defaultQuality, bufferTime, 0,
                                           &format, nullptr),
                      "the loudspeaker does not play 48000 Hz stereo");
        ThrowIfFailed(m_client->GetBufferSize(&m_bufferFrames), "the loudspeaker has no buffer");
        ThrowIfFailed(m_client->GetService(__uuidof(IAudioRenderClient), &m_renderer),
                      "the loudspeaker accepts no sound");
    }
    ~Player() { m_client->Stop(); }
    Player(const Player &) = delete;
    Player &operator=(const Player &) = delete;

    // Returns the performance counter at the begin of playing.
    uint64_t Play()
    {
        Fill();
        ThrowIfFailed(m_client->Start(), "cannot start the loudspeaker");
        const uint64_t begin = PerformanceTime();
        Clock::time_point lastProgress = Clock::now();
        for (size_t waiting = SIZE_MAX; waiting > 0;) {
            Sleep(pollMs);
            Fill();
            const size_t nowWaiting = m_rest.size() + size_t{Padding()} * channels;
            if (nowWaiting < waiting) {
                lastProgress = Clock::now();
            } else if (Clock::now() - lastProgress > longestStall) {
                throw SoundPlayerError(
                    fmt::format("the loudspeaker played nothing for {} s", longestStall / 1s));
            }
            waiting = nowWaiting;
        }
        return begin;
    }

private:
    UINT32 Padding() const
    {
        UINT32 frames = 0;
        ThrowIfFailed(m_client->GetCurrentPadding(&frames), "the loudspeaker was lost while it played");
        return frames;
    }

    // Moves as much of the rest as the buffer takes.
    void Fill()
    {
        const size_t samples = std::min(m_rest.size(), size_t{m_bufferFrames - Padding()} * channels);
        const auto frames = static_cast<UINT32>(samples / channels);
        if (frames == 0) {
            return;
        }
        BYTE *data = nullptr;
        ThrowIfFailed(m_renderer->GetBuffer(frames, &data), "the loudspeaker was lost while it played");
        std::memcpy(data, m_rest.data(), samples * sizeof(float));
        ThrowIfFailed(m_renderer->ReleaseBuffer(frames, 0), "the loudspeaker was lost while it played");
        m_rest = m_rest.subspan(samples);
    }

    std::span<const float> m_rest; // not yet in the buffer
    ComPtr<IAudioClient> m_client;
    ComPtr<IAudioRenderClient> m_renderer;
    UINT32 m_bufferFrames = 0;
};

} // namespace

uint64_t PlayWithoutModule(std::span<const float> interleaved)
{
    const host::ComApartment apartment;
    return Player(interleaved).Play();
}

} // namespace velto::check
