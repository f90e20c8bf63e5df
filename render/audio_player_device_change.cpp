// Following the default endpoint and its format.
#include "render/audio_player_was.h"

#include <cwchar>
#include <utility>

#include "handler/log.h"
#include "render/call_log.h"
#include "support/com.h"

namespace velto {
namespace {

constexpr char checkTag[] = "AudioPlayerWas::CheckDeviceChanged";
constexpr char deviceTag[] = "AudioPlayerWas::OnAudioDeviceChanged";
constexpr char propertyTag[] = "AudioPlayerWas::OnAudioPropertyValueChanged";

void LogNotOpen(const char *tag, bool isOpen)
{
    LogPlayerError(tag, "isOpen=", isOpen ? 1 : 0);
}

} // namespace

// A flag is cleared before its handler runs: a failed switch is not retried until the next notification.
int32_t AudioPlayerWas::CheckDeviceChanged()
{
    if (m_deviceChanged.exchange(false)) {
        const int32_t result = OnAudioDeviceChanged();
        if (result != 0) {
            LogPlayerError(checkTag, "OnAudioDeviceChanged failed");
            return result;
        }
    }
    if (m_propertyChanged.exchange(false)) {
        const int32_t result = OnAudioPropertyValueChanged();
        if (result != 0) {
            LogPlayerError(checkTag, "OnAudioPropertyValueChanged failed");
            return result;
        }
    }
    return 0;
}

int32_t AudioPlayerWas::OnAudioDeviceChanged()
{
    if (!m_isOpen || m_enumerator == nullptr) {
        LogNotOpen(deviceTag, m_isOpen);
        return 0;
    }
    LogPlayerError(deviceTag, "OnAudioDeviceChanged");

    IMMDevice *device = nullptr;
    const HRESULT result = m_enumerator->GetDefaultAudioEndpoint(eRender, eMultimedia, &device);
    if (result < 0 || device == nullptr) {
        LogError(deviceTag, "AudioPlayer GetDefaultAudioEndpoint fail with ", result, ". Just return");
        SafeCoTaskMemFree(m_deviceId);
        return 1;
    }
    const int32_t switched = SwitchTo(device);
    SafeRelease(device);
    return switched;
}

int32_t AudioPlayerWas::SwitchTo(IMMDevice *device)
{
    LPWSTR deviceId = nullptr;
    const auto getId = [&] { return device->GetId(&deviceId); };
    if (getId() < 0) {
        const HRESULT shown = ResultOfSecondCall(getId, [&] { SafeCoTaskMemFree(deviceId); });
        LogError(deviceTag, "AudioPlayer function fail with ", shown, ". Just return");
        return 1;
    }
    if (deviceId != nullptr && m_deviceId != nullptr && std::wcscmp(deviceId, m_deviceId) == 0) {
        LogPlayerError(deviceTag, "same deviceId");
        SafeCoTaskMemFree(deviceId);
        return 0;
    }
    LogPlayerInfo(deviceTag, "Need to change default audio device.");
    SafeCoTaskMemFree(m_deviceId);
    m_deviceId = deviceId;
    DropClient();
    SafeRelease(m_device);
    m_device = device;
    m_device->AddRef();
    return ActivateWasClient();
}

int32_t AudioPlayerWas::OnAudioPropertyValueChanged()
{
    if (!m_isOpen || m_device == nullptr) {
        LogNotOpen(propertyTag, m_isOpen);
        return 0;
    }
    if (m_client.IsUsable()) {
        return 0;
    }
    LogPlayerInfo(propertyTag, "Need to deal with audio property value change");
    DropClient();
    return ActivateWasClient();
}

void AudioPlayerWas::DropClient()
{
    m_client.Stop();
    m_client.Release();
    m_client.FreeMixFormat();
}

} // namespace velto
