// Receives the system's endpoint notifications for a renderer.
#pragma once

#include <mmdeviceapi.h>

#include <mutex>

#include "render/i_audio_player.h"

namespace velto {

// The system calls this object on a thread of its notification service. A notification only sets a flag of
// the renderer: a call to the endpoint from this thread can deadlock.
// https://learn.microsoft.com/windows/win32/api/mmdeviceapi/nn-mmdeviceapi-immnotificationclient
//
// The renderer owns the object and deletes it after the registration has ended, so references are not
// counted. If the registration cannot be ended, the renderer abandons the object instead.
class WasapiDeviceEvents : public IMMNotificationClient {
public:
    explicit WasapiDeviceEvents(IAudioPlayer *player) : m_player(player) {}
    virtual ~WasapiDeviceEvents() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 0; }
    ULONG STDMETHODCALLTYPE Release() override { return 0; }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR deviceId) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR deviceId, const PROPERTYKEY key) override;

    // Detaches the renderer, which is about to go, from an object that the system may still call, and waits
    // for a notification that has begun. The object and this module then stay until the process ends.
    void Abandon();

private:
    friend class WasapiDeviceEventsProbe; // the unit tests' view of the members

    std::mutex m_mutex;     // guards m_player; locked only while a notification sets a flag
    IAudioPlayer *m_player; // not owned; null once abandoned
};

} // namespace velto
