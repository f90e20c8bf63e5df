// Receives the system's endpoint notifications for a renderer.
#pragma once

#include <mmdeviceapi.h>

#include "render/i_audio_player.h"

namespace velto {

// The system calls this object on a thread of its notification service. A notification only sets a flag of
// the renderer: a call to the endpoint from this thread can deadlock.
// https://learn.microsoft.com/windows/win32/api/mmdeviceapi/nn-mmdeviceapi-immnotificationclient
//
// The renderer owns the object and deletes it after the registration has ended, so references are not
// counted.
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

private:
    friend class WasapiDeviceEventsProbe; // the unit tests' view of the members

    IAudioPlayer *m_player; // not owned
};

} // namespace velto
