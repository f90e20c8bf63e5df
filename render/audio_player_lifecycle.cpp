// Opening, activating, closing and cleaning up.
#include "render/audio_player_was.h"

#include <new>
#include <utility>

#include "render/call_log.h"
#include "support/com.h"

namespace velto {
namespace {

constexpr char openTag[] = "AudioPlayerWas::Open";
constexpr char initTag[] = "AudioPlayerWas::InitDefaultAudioDevice";
constexpr char activateTag[] = "AudioPlayerWas::ActivateWasClient";

} // namespace

AudioPlayerWas::~AudioPlayerWas()
{
    EndNotifications();
    ReleaseResources();
    SafeRelease(m_device);
    SafeRelease(m_enumerator);
    m_client.ReleaseAudioClient();
}

bool AudioPlayerWas::Open(int32_t bitsPerSample, int32_t channels, int32_t sampleRate)
{
    if (bitsPerSample < 1 || channels < 1 || sampleRate < 1) {
        return false;
    }
    m_client.CreateBufferEvent();

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
        [this] { m_notificationRegistered = true; }); // Open ends the registration
}

// Close keeps the enumerator, the device and the notification client; the next Open replaces them.
void AudioPlayerWas::ReleaseEarlierOpening()
{
    delete m_notificationClient;
    m_notificationClient = nullptr;
    SafeRelease(m_device);
    SafeRelease(m_enumerator);
    SafeCoTaskMemFree(m_deviceId);
    m_client.FreeMixFormat();
    SafeCloseHandle(m_waitEvent);
}

// If the system refuses to end the registration, it may still call the client, which must not be deleted
// then.
void AudioPlayerWas::EndNotifications()
{
    if (!m_notificationRegistered) {
        return;
    }
    const HRESULT result = m_enumerator->UnregisterEndpointNotificationCallback(m_notificationClient);
    m_notificationRegistered = false;
    if (FAILED(result) && result != E_NOTFOUND) {
        m_notificationClient->Abandon();
        m_notificationClient = nullptr;
    }
}

void AudioPlayerWas::InitDefaultAudioDevice()
{
    if (!FindDefaultEndpoint() || !StartOnEndpoint()) {
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
        LogPlayerError(initTag, "endpointDevice is not active");
        return false;
    }
    return true;
}

bool AudioPlayerWas::StartOnEndpoint()
{
    static constexpr ActivationLines lines{initTag, 307, 308, 315, 320, 321, 323};
    if (!m_client.Activate(*m_device, lines) || !PointerPresent(initTag, 309, m_client.MixFormat()) ||
        !m_client.Initialize(lines)) {
        return false;
    }
    LogPlayerInfo(initTag, "Initialize end. BUFF_DURATIAN=", EndpointClient::bufferDuration100ns);

    if (!PointerPresent(initTag, 318, m_converter.AllocateContext()) ||
        !CallSucceeded(initTag, 319, [this] { return ResampleInit(); }) || !m_client.Bind(lines)) {
        return false;
    }
    m_client.Start();
    m_waitEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return PointerPresent(initTag, 327, m_waitEvent);
}

int32_t AudioPlayerWas::ActivateWasClient()
{
    static constexpr ActivationLines lines{activateTag, 175, 177, 186, 188, 189, 191};
    if (m_device == nullptr) {
        return 1;
    }
    bool ready = m_client.Activate(*m_device, lines);
    if (ready && m_client.MixFormat() == nullptr) {
        // By contract, the uninitialised client is kept. The client does not report itself invalid, so a
        // property change does not replace it: only another default device or the next Open does.
        return 1;
    }
    ready = ready && m_client.Initialize(lines);
    if (ready) {
        ResampleInit();
        ready = m_client.Bind(lines);
    }
    if (!ready) {
        m_client.Release();
        return 1;
    }
    m_client.Start();
    return 0;
}

void AudioPlayerWas::Close()
{
    if (!m_isOpen || m_enumerator == nullptr) {
        LogPlayerError("AudioPlayerWas::Close", "there is no need to close");
        return;
    }
    Stop();
    EndNotifications();
    ReleaseClient();
    if (!m_implementation.Holds()) { // leaving COM could then unload the DLL that implements both
        SafeRelease(m_device);
        SafeRelease(m_enumerator);
    }
    // Leaves COM once for each successful Open: a second Close, or one after a refused Open, must not leave
    // it again.
    if (std::exchange(m_comEntered, false)) {
        CoUninitialize();
    }
}

void AudioPlayerWas::ReleaseResources()
{
    m_converter.FreeContext();
    m_client.FreeMixFormat();
    m_converter.FreeBuffers();
    m_client.CloseBufferEvent();
    delete m_notificationClient;
    m_notificationClient = nullptr;
    SafeCoTaskMemFree(m_deviceId);
    SafeCloseHandle(m_waitEvent);
    m_isOpen = false;
}

} // namespace velto
