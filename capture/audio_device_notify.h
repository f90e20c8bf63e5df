// Forwards changes of the system's default devices to listeners.
//
// A COM notification client. Its reference count begins at 0: the owner calls AddRef after creating it, and
// Release after UnInitialize. Some systems add a reference while the client is registered, others do not.
//
// The owner calls Initialize and UnInitialize, one at a time. Any thread may add and remove listeners. The
// system's thread locks m_lock while it calls the listeners, so once RemoveListener has returned, the
// listener is not called any more.
//
// While registered, the client keeps this module mapped: a host may call FreeLibrary with a recording open in
// which no thread runs, and a notification would then call unmapped code.
// https://learn.microsoft.com/windows/win32/api/mmdeviceapi/nn-mmdeviceapi-immnotificationclient
#pragma once

#include <windows.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "capture/i_audio_device_notify_listener.h"
#include "support/module_reference.h"

namespace velto {

class AudioDeviceNotify final : public IMMNotificationClient {
public:
    AudioDeviceNotify() = default;
    AudioDeviceNotify(const AudioDeviceNotify &) = delete;
    AudioDeviceNotify &operator=(const AudioDeviceNotify &) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    // Frees the object when the count goes from 1 to 0. From 0, the count wraps and the object stays.
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR deviceId) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

    // Registers for notifications and empties the list of listeners. Returns the result of the registration;
    // E_FAIL without COM, without an enumerator, or if one of the modules cannot be kept mapped.
    HRESULT Initialize();
    // Ends the registration, if there is one, and drops the reference to this module. The module stays mapped
    // during the call: host threads have a reference from LoadLibrary, the module's threads have one from
    // StartModuleThread. Any thread, inside an apartment or not. If the system refuses to end the
    // registration, the object stays until the process ends.
    void UnInitialize();

    // Listeners are not owned. A listener that is added twice is called once. Without memory, AddListener
    // logs an error and adds nothing.
    void AddListener(IAudioDeviceNotifyListener *listener);
    void RemoveListener(IAudioDeviceNotifyListener *listener);

private:
    friend class AudioDeviceNotifyProbe; // the unit tests' view of the members

    ~AudioDeviceNotify() = default; // by Release only

    bool HoldModules();

    IMMDeviceEnumerator *m_enumerator = nullptr; // owned reference; Initialize and UnInitialize only
    std::atomic<ULONG> m_references{0};
    std::vector<IAudioDeviceNotifyListener *> m_listeners; // guarded by m_lock
    std::recursive_mutex m_lock;
    ModuleReference m_implementation; // the DLL that implements m_enumerator, which COM could unload
    ModuleReference m_thisModule;     // while registered
};

} // namespace velto
