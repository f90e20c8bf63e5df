#include "check/loopback_recorder.h"

#include <windows.h>

#include <audioclient.h>
#include <audiopolicy.h>
#include <endpointvolume.h>
#include <ks.h>
#include <ksmedia.h>
#include <mmdeviceapi.h>
#include <wrl/client.h>

#include <cmath>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "check/default_endpoint.h"
#include "check/portable/sound_timeline.h"
#include "velto-host/com_apartment.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using Microsoft::WRL::ComPtr;

constexpr REFERENCE_TIME bufferTime = 10'000'000; // 1 s in units of 100 ns: a busy PC delays this thread
constexpr DWORD pollMs = 10;                      // before Windows 10 1703, a loopback client gets no events

// Systems without loopback differ in the call that refuses it: Wine 8 accepts the flag, and refuses the
// capture client.
void ThrowIfFailed(HRESULT result, const char *step)
{
    if (result == AUDCLNT_E_WRONG_ENDPOINT_TYPE) {
        throw LoopbackError("this system has no loopback: it cannot record what a loudspeaker plays");
    }
    if (FAILED(result)) {
        throw LoopbackError(
            fmt::format("{}: {}", step, host::SystemErrorText(static_cast<uint32_t>(result))));
    }
}

ComPtr<IMMDevice> DefaultLoudspeaker()
{
    ComPtr<IMMDevice> device;
    ThrowIfFailed(FindDefaultEndpoint(eRender, &device), "cannot find the default loudspeaker");
    return device;
}

struct FormatDeleter {
    void operator()(WAVEFORMATEX *format) const { CoTaskMemFree(format); }
};
using MixFormat = std::unique_ptr<WAVEFORMATEX, FormatDeleter>;

bool IsFloat(const WAVEFORMATEX &format)
{
    if (format.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        const auto &extensible = reinterpret_cast<const WAVEFORMATEXTENSIBLE &>(format);
        return format.wBitsPerSample == 32 &&
               IsEqualGUID(extensible.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT) != 0;
    }
    return format.wBitsPerSample == 32 && format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
}

// The capture client of a loudspeaker's loopback.
class Loopback {
public:
    explicit Loopback(IMMDevice &device)
    {
        ThrowIfFailed(device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, &m_client),
                      "cannot activate the loudspeaker");
        WAVEFORMATEX *format = nullptr;
        ThrowIfFailed(m_client->GetMixFormat(&format), "the loudspeaker has no mix format");
        m_format.reset(format);
        if (!IsFloat(*m_format)) {
            throw LoopbackError("the loudspeaker's mix format is not 32-bit float");
        }
        ThrowIfFailed(m_client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK, bufferTime,
                                           0, m_format.get(), nullptr),
                      "cannot record what the loudspeaker plays");
        ThrowIfFailed(m_client->GetService(__uuidof(IAudioCaptureClient), &m_capture),
                      "cannot get the packets of the loopback");
        ThrowIfFailed(m_client->Start(), "cannot start the loopback");
    }
    ~Loopback()
    {
        if (m_capture != nullptr) {
            m_client->Stop();
        }
    }
    Loopback(const Loopback &) = delete;
    Loopback &operator=(const Loopback &) = delete;

    const WAVEFORMATEX &Format() const { return *m_format; }

    // Moves all packets that wait to the timeline.
    void Fetch(SoundTimeline &timeline) const
    {
        for (;;) {
            BYTE *data = nullptr;
            UINT32 frames = 0;
            DWORD flags = 0;
            UINT64 position = 0;
            UINT64 time = 0;
            const HRESULT result = m_capture->GetBuffer(&data, &frames, &flags, &position, &time);
            ThrowIfFailed(result, "the loudspeaker was lost during the recording");
            if (result == AUDCLNT_S_BUFFER_EMPTY || frames == 0) {
                return;
            }
            const bool isSilent = (flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0;
            const bool isDiscontinuous = (flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY) != 0;
            const bool isTimeWrong = (flags & AUDCLNT_BUFFERFLAGS_TIMESTAMP_ERROR) != 0;
            timeline.Add({position, isTimeWrong ? std::nullopt : std::optional<uint64_t>(time), frames,
                          isDiscontinuous, isSilent ? nullptr : reinterpret_cast<const float *>(data)});
            ThrowIfFailed(m_capture->ReleaseBuffer(frames), "the loudspeaker was lost during the recording");
        }
    }

private:
    ComPtr<IAudioClient> m_client;
    ComPtr<IAudioCaptureClient> m_capture;
    MixFormat m_format;
};

// The volume of this program at the loudspeaker, in dB; none if the system has no such volume. The module
// plays in the process's default session, which has this volume.
std::optional<double> ProgramVolumeDb(IMMDevice &device, bool &isMuted)
{
    ComPtr<IAudioSessionManager> sessions;
    ComPtr<ISimpleAudioVolume> volume;
    float factor = 0;
    BOOL mute = FALSE;
    if (FAILED(device.Activate(__uuidof(IAudioSessionManager), CLSCTX_ALL, nullptr, &sessions)) ||
        FAILED(sessions->GetSimpleAudioVolume(nullptr, 0, &volume)) ||
        FAILED(volume->GetMasterVolume(&factor)) || FAILED(volume->GetMute(&mute))) {
        return std::nullopt;
    }
    isMuted = isMuted || mute != FALSE || factor <= 0;
    return factor > 0 ? 20 * std::log10(factor) : 0;
}

// Likewise, of the loudspeaker.
std::optional<double> LoudspeakerVolumeDb(IMMDevice &device, bool &isMuted)
{
    ComPtr<IAudioEndpointVolume> volume;
    float level = 0;
    BOOL mute = FALSE;
    if (FAILED(device.Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr, &volume)) ||
        FAILED(volume->GetMasterVolumeLevel(&level)) || FAILED(volume->GetMute(&mute))) {
        return std::nullopt;
    }
    isMuted = isMuted || mute != FALSE;
    return level;
}

void ReadVolumes(IMMDevice &device, LoopbackRecording &recording)
{
    const auto program = ProgramVolumeDb(device, recording.isMuted);
    const auto loudspeaker = LoudspeakerVolumeDb(device, recording.isMuted);
    if (program) {
        recording.levelsDb.push_back(*program);
        if (loudspeaker && *loudspeaker != 0) {
            recording.levelsDb.push_back(*program + *loudspeaker);
        }
    }
}

} // namespace

LoopbackRecorder::LoopbackRecorder()
{
    std::promise<void> promise;
    std::future<void> begun = promise.get_future();
    m_recording = std::async(std::launch::async, &LoopbackRecorder::Record, this, std::move(promise));
    begun.get();
}

LoopbackRecorder::~LoopbackRecorder()
{
    m_stop = true; // the future waits for the thread
}

LoopbackRecording LoopbackRecorder::Stop()
{
    m_stop = true;
    return m_recording.get();
}

LoopbackRecording LoopbackRecorder::Record(std::promise<void> begun)
{
    const host::ComApartment apartment;
    std::optional<Loopback> loopback;
    ComPtr<IMMDevice> device;
    try {
        device = DefaultLoudspeaker();
        loopback.emplace(*device.Get());
    } catch (const LoopbackError &) {
        begun.set_exception(std::current_exception());
        return {};
    }
    LoopbackRecording recording{
        loopback->Format().nSamplesPerSec, loopback->Format().nChannels, {}, 0, false, {}};
    SoundTimeline timeline(recording.rateHz, recording.channels);
    begun.set_value();
    while (!m_stop) {
        Sleep(pollMs);
        loopback->Fetch(timeline);
    }
    ReadVolumes(*device.Get(), recording);
    recording.interleaved = std::move(timeline.Samples());
    recording.beganAt = timeline.BeganAt();
    return recording;
}

} // namespace velto::check
