#include "capture/audio_device_notify.h"

#include <algorithm>
#include <new>

#include "codec/audio_utils.h"
#include "handler/log.h"
#include "support/com.h"

namespace velto {
namespace {

constexpr char initializeTag[] = "AudioDeviceNotify::Initialize";
constexpr char unInitializeTag[] = "AudioDeviceNotify::UnInitialize";

} // namespace

HRESULT AudioDeviceNotify::QueryInterface(REFIID iid, void **object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, __uuidof(IMMNotificationClient))) {
        AddRef();
        *object = this;
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG AudioDeviceNotify::AddRef()
{
    return ++m_references;
}

ULONG AudioDeviceNotify::Release()
{
    const ULONG before = m_references--;
    if (before == 1) {
        delete this;
    }
    return before - 1;
}

HRESULT AudioDeviceNotify::Initialize()
{
    const std::lock_guard lock(m_lock);
    const COMLoadStatus status = AudioUtils::GetCOMLoadedStatus();
    if (status == COM_NOT_LOADED) {
        LogError(initializeTag, "GetCOMLoadedStatus failed");
        return E_FAIL;
    }
    const HRESULT created =
        CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                         reinterpret_cast<void **>(&m_enumerator));
    if (FAILED(created) || m_enumerator == nullptr) {
        m_enumerator = nullptr;
        AudioUtils::UnloadCOM(status);
        LogError(initializeTag, "GetDeviceCount pEnum is null");
        return E_FAIL;
    }
    if (!HoldModules()) {
        SafeRelease(m_enumerator); // before leaving COM, which may unload the DLL that implements it
        m_implementation.Drop();
        AudioUtils::UnloadCOM(status);
        return E_FAIL;
    }
    LogInfo(initializeTag, "deviceEnumerator RegisterEndpointNotificationCallback");
    const HRESULT registered = m_enumerator->RegisterEndpointNotificationCallback(this);
    if (FAILED(registered)) {
        m_thisModule.Drop(); // no notification will come
    }
    AudioUtils::UnloadCOM(status);
    m_listeners.clear();
    return registered;
}

// Keeps both modules mapped. On failure, logs an error and returns false.
bool AudioDeviceNotify::HoldModules()
{
    m_implementation.HoldImplementationOf(m_enumerator);
    if (!m_implementation.Holds()) {
        LogError(
            initializeTag,
            "Cannot hold the endpoints' DLL, default device changes are not followed! err=", GetLastError());
        return false;
    }
    m_thisModule.HoldImplementationOf(static_cast<IMMNotificationClient *>(this));
    if (!m_thisModule.Holds()) {
        LogError(initializeTag,
                 "Cannot hold this module, default device changes are not followed! err=", GetLastError());
        return false;
    }
    return true;
}

void AudioDeviceNotify::UnInitialize()
{
    LogInfo(unInitializeTag, "AudioDeviceNotify::UnInitialize()");
    if (m_enumerator == nullptr) {
        return;
    }
    LogInfo(unInitializeTag, "deviceEnumerator UnregisterEndpointNotificationCallback");
    const HRESULT result = m_enumerator->UnregisterEndpointNotificationCallback(this);
    SafeRelease(m_enumerator);
    const bool wasRegistered = m_thisModule.Holds();
    if (wasRegistered && FAILED(result) && result != E_NOTFOUND) {
        AddRef(); // the system may still call this object, so it stays and keeps both modules mapped
        return;
    }
    m_implementation.Drop();
    m_thisModule.Drop();
}

void AudioDeviceNotify::AddListener(IAudioDeviceNotifyListener *listener)
{
    const std::lock_guard lock(m_lock);
    if (std::find(m_listeners.begin(), m_listeners.end(), listener) != m_listeners.end()) {
        return;
    }
    try {
        m_listeners.push_back(listener);
    } catch (const std::bad_alloc &) {
        LogError("AudioDeviceNotify::AddListener",
                 "No memory for a listener, default device changes are not followed!");
    }
}

void AudioDeviceNotify::RemoveListener(IAudioDeviceNotifyListener *listener)
{
    const std::lock_guard lock(m_lock);
    const auto found = std::find(m_listeners.begin(), m_listeners.end(), listener);
    if (found != m_listeners.end()) {
        m_listeners.erase(found);
    }
}

HRESULT AudioDeviceNotify::OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR deviceId)
{
    const std::lock_guard lock(m_lock);
    LogInfo("AudioDeviceNotify::OnDefaultDeviceChanged", "OnDefaultDeviceChanged");
    for (IAudioDeviceNotifyListener *listener : m_listeners) {
        if (listener != nullptr) {
            listener->OnAudioStateChanged(flow, role, deviceId);
        }
    }
    return S_OK;
}

} // namespace velto
