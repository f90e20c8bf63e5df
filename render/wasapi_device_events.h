// Turns the system's endpoint notifications into flags of a renderer.
#pragma once

#include <mmdeviceapi.h>

#include "render/i_audio_player.h"

namespace velto {

// Called on a thread of the system's notification service; only raises flags, since calling the
// endpoint from there can deadlock.
// https://learn.microsoft.com/windows/win32/api/mmdeviceapi/nn-mmdeviceapi-immnotificationclient
//
// Owned by its renderer for as long as it is registered: reference counting does nothing here.
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
    IAudioPlayer *m_player; // not owned
};

} // namespace velto
