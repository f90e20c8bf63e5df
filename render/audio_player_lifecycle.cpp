// Opening, activating, closing and cleaning up.
#include "render/audio_player_was.h"

#include <new>
#include <utility>

#include "handler/log.h"
#include "render/call_log.h"
#include "support/com.h"

extern "C" {
#include <libswresample/swresample.h>
}

namespace velto {
namespace {

constexpr REFERENCE_TIME bufferDuration100ns = 3000000; // 300 ms

// KSDATAFORMAT_SUBTYPE_PCM of ksmedia.h, which not every SDK has in a library.
constexpr GUID pcmSubFormat{0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

constexpr char openTag[] = "AudioPlayerWas::Open";
constexpr char initTag[] = "AudioPlayerWas::InitDefaultAudioDevice";
constexpr char activateTag[] = "AudioPlayerWas::ActivateWasClient";

} // namespace

// The numbers that name the failing step in the log. They belong to this version's log contract and are not
// lines of this file.
struct AudioPlayerWas::ActivationLines {
    const char *tag;
    int activate;
    int mixFormat;
    int initialize;
    int eventHandle;
    int bufferSize;
    int service;
};

AudioPlayerWas::~AudioPlayerWas()
{
    m_isOpen = false;
    EndNotifications();
    ReleaseResources();
    SafeRelease(m_device);
    SafeRelease(m_enumerator);
    SafeRelease(m_audioClient);
    m_implementation.Drop();
}

bool AudioPlayerWas::Open(int32_t bitsPerSample, int32_t channels, int32_t sampleRate)
{
    if (bitsPerSample < 1 || channels < 1 || sampleRate < 1) {
        return false;
    }
    SafeCloseHandle(m_bufferEvent);
    m_bufferEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);

    const auto enterCom = [] {
        return CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_SPEED_OVER_MEMORY);
    };
    const bool comEntered = CallSucceeded(openTag, 270, enterCom, [] { CoUninitialize(); });
    if (comEntered && RegisterForNotifications()) {
        m_notificationRegistered = true;
        m_isOpen = true;
        m_comEntered = true;
        InitDefaultAudioDevice();
        return true;
    }

    EndNotifications();
    SafeRelease(m_enumerator);
    ReleaseResources();
    if (comEntered) {
        CoUninitialize();
    }
    return false;
}

bool AudioPlayerWas::RegisterForNotifications()
{
    ReleaseEarlierOpening();
    const auto createEnumerator = [this] {
        return CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                __uuidof(IMMDeviceEnumerator), reinterpret_cast<void **>(&m_enumerator));
    };
    if (!CallSucceeded(openTag, 272, createEnumerator)) {
        return false;
    }
    m_notificationClient = new (std::nothrow) WasapiDeviceEvents(this);
    if (!PointerPresent(openTag, 274, m_notificationClient) || !PointerPresent(openTag, 275, m_enumerator)) {
        return false;
    }
    m_implementation.HoldImplementationOf(m_enumerator);
    return CallSucceeded(
        openTag, 276,
        [this] { return m_enumerator->RegisterEndpointNotificationCallback(m_notificationClient); },
        [this] { m_enumerator->UnregisterEndpointNotificationCallback(m_notificationClient); });
}

// Close keeps enumerator, device and notification client. The next Open replaces them.
void AudioPlayerWas::ReleaseEarlierOpening()
{
    EndNotifications();
    delete m_notificationClient;
    m_notificationClient = nullptr;
    ReleaseClient();
    SafeRelease(m_device);
    SafeRelease(m_enumerator);
    SafeCoTaskMemFree(m_deviceId);
    SafeCoTaskMemFree(m_mixFormat);
    SafeCloseHandle(m_waitEvent);
}

void AudioPlayerWas::EndNotifications()
{
    if (m_enumerator != nullptr && m_notificationClient != nullptr && m_notificationRegistered) {
        m_enumerator->UnregisterEndpointNotificationCallback(m_notificationClient);
        m_notificationRegistered = false;
    }
}

void AudioPlayerWas::InitDefaultAudioDevice()
{
    if (m_enumerator == nullptr || !FindDefaultEndpoint() || !StartOnEndpoint()) {
        SafeRelease(m_device);
        ReleaseClient();
    }
}

bool AudioPlayerWas::FindDefaultEndpoint()
{
    if (!CallSucceeded(
            initTag, 296,
            [this] { return m_enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &m_device); }) ||
        !PointerPresent(initTag, 296, m_device) ||
        !CallSucceeded(initTag, 297, [this] { return m_device->GetId(&m_deviceId); })) {
        return false;
    }
    // A failing GetState counts as active: activation fails if the device is not.
    DWORD state = DEVICE_STATE_DISABLED;
    if (SUCCEEDED(m_device->GetState(&state)) && (state & DEVICE_STATE_ACTIVE) == 0) {
        LogError(initTag, "AudioPlayerWas ", "endpointDevice is not active");
        return false;
    }
    return true;
}

bool AudioPlayerWas::StartOnEndpoint()
{
    static constexpr ActivationLines lines{initTag, 307, 308, 315, 320, 321, 323};
    if (!ActivateClient(lines) || !PointerPresent(initTag, 309, m_mixFormat) || !InitializeClient(lines)) {
        return false;
    }
    LogInfo(initTag, "AudioPlayerWas ", "Initialize end. BUFF_DURATIAN=", bufferDuration100ns);

    // Leaks the previous opening's converter, by contract: docs/known-leaks.md.
    m_resampler = swr_alloc();
    if (!PointerPresent(initTag, 318, m_resampler) ||
        !CallSucceeded(initTag, 319, [this] { return ResampleInit(); }) || !BindClient(lines)) {
        return false;
    }
    m_audioClient->Start();
    m_waitEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return PointerPresent(initTag, 327, m_waitEvent);
}

int32_t AudioPlayerWas::ActivateWasClient()
{
    static constexpr ActivationLines lines{activateTag, 175, 177, 186, 188, 189, 191};
    if (m_device == nullptr) {
        return 1;
    }
    bool ready = ActivateClient(lines);
    if (ready && m_mixFormat == nullptr) {
        // The uninitialised client is kept. It does not report itself invalid, so a property change keeps it,
        // too: only another default device or the next Open replaces it.
        return 1;
    }
    ready = ready && InitializeClient(lines);
    if (ready) {
        ResampleInit();
        ready = BindClient(lines);
    }
    if (!ready) {
        ReleaseClient();
        return 1;
    }
    m_audioClient->Start();
    return 0;
}

bool AudioPlayerWas::ActivateClient(const ActivationLines &lines)
{
    const auto activate = [this] {
        return m_device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr,
                                  reinterpret_cast<void **>(&m_audioClient));
    };
    return CallSucceeded(lines.tag, lines.activate, activate) &&
           PointerPresent(lines.tag, lines.activate, m_audioClient) &&
           CallSucceeded(lines.tag, lines.mixFormat,
                         [this] { return m_audioClient->GetMixFormat(&m_mixFormat); });
}

// Re-labels the mix format as PCM and initialises the client with it: the engine's 32-bit float
// becomes 32-bit integer, which is what the converter is set up for.
bool AudioPlayerWas::InitializeClient(const ActivationLines &lines)
{
    m_frameBytes = m_mixFormat->nBlockAlign;
    if (m_mixFormat->cbSize >= sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX)) {
        reinterpret_cast<WAVEFORMATEXTENSIBLE *>(m_mixFormat)->SubFormat = pcmSubFormat;
    }
    return CallSucceeded(lines.tag, lines.initialize, [this] {
        return m_audioClient->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK,
                                         bufferDuration100ns, 0, m_mixFormat, nullptr);
    });
}

bool AudioPlayerWas::BindClient(const ActivationLines &lines)
{
    const auto getService = [this] {
        return m_audioClient->GetService(__uuidof(IAudioRenderClient),
                                         reinterpret_cast<void **>(&m_renderClient));
    };
    return CallSucceeded(lines.tag, lines.eventHandle,
                         [this] { return m_audioClient->SetEventHandle(m_bufferEvent); }) &&
           CallSucceeded(lines.tag, lines.bufferSize,
                         [this] { return m_audioClient->GetBufferSize(&m_bufferFrames); }) &&
           CallSucceeded(lines.tag, lines.service, getService) &&
           PointerPresent(lines.tag, lines.service, m_renderClient);
}

void AudioPlayerWas::Close()
{
    if (!m_isOpen || m_enumerator == nullptr) {
        LogError("AudioPlayerWas::Close", "AudioPlayerWas ", "there is no need to close");
        return;
    }
    Stop();
    EndNotifications();
    ReleaseClient();
    if (!m_implementation.Holds()) { // leaving COM may unload their DLL
        SafeRelease(m_device);
        SafeRelease(m_enumerator);
    }
    // Once per successful Open: not after one that was refused for its arguments, nor at a second Close.
    if (std::exchange(m_comEntered, false)) {
        CoUninitialize();
    }
}

void AudioPlayerWas::ReleaseClient()
{
    SafeRelease(m_audioClient);
    SafeRelease(m_renderClient);
}

void AudioPlayerWas::Stop()
{
    if (m_audioClient != nullptr) {
        m_audioClient->Stop();
    }
}

void AudioPlayerWas::Start()
{
    if (m_audioClient != nullptr) {
        m_audioClient->Start();
    }
}

void AudioPlayerWas::ReleaseResources()
{
    swr_free(&m_resampler);
    SafeCoTaskMemFree(m_mixFormat);
    m_inputBuffer.Free();
    m_outputBuffer.Free();
    SafeCloseHandle(m_bufferEvent);
    delete m_notificationClient;
    m_notificationClient = nullptr;
    SafeCoTaskMemFree(m_deviceId);
    SafeCloseHandle(m_waitEvent);
    m_isOpen = false;
}

} // namespace velto
