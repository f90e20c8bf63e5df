// Forwards changes of the system's default devices to listeners.
//
// A COM notification client. Its count begins at 0: an owner who keeps the pointer has to AddRef it,
// and Release it after UnInitialize. The system's own references come and go with the registration;
// not every implementation takes one.
//
// Initialize and UnInitialize are called by the owner, one at a time; the listener calls may come
// from any thread; notifications come on the system's thread, which holds the lock while it calls
// the listeners, so that after RemoveListener has returned, no call is under way.
//
// While registered, this object holds the module that contains it: a host may call FreeLibrary with a
// recording open in which no thread runs, and notifications would then run unmapped code.
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
    // Frees the object when the count was 1; not when it was 0.
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR deviceId) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

    // Registers for notifications and empties the list of listeners. E_FAIL without COM, without an
    // enumerator, or when one of the modules cannot be held; else what the registration returned.
    HRESULT Initialize();
    // Ends the registration, if there is one, and drops the reference to this module. The caller holds
    // a reference itself (a host thread by its LoadLibrary, our own threads by StartModuleThread), so
    // this is never the last one. Any thread, inside an apartment or not.
    void UnInitialize();

    // Listeners are not owned; each is called once for a notification. Without memory, AddListener logs an
    // error and adds nothing.
    void AddListener(IAudioDeviceNotifyListener *listener);
    void RemoveListener(IAudioDeviceNotifyListener *listener);

private:
    friend class AudioDeviceNotifyProbe; // the unit tests' view of the members

    ~AudioDeviceNotify() = default; // by Release only

    bool HoldModules();

    IMMDeviceEnumerator *m_enumerator = nullptr; // owned reference; the owner's thread
    std::atomic<ULONG> m_references{0};
    std::vector<IAudioDeviceNotifyListener *> m_listeners; // guarded by m_lock
    std::recursive_mutex m_lock;
    ModuleReference m_implementation; // the DLL behind m_enumerator, which COM may unload otherwise
    ModuleReference m_thisModule;     // while registered
};

} // namespace velto
