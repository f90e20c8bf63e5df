// A listener for changes of the system's default devices.
#pragma once

#include <windows.h>
#include <mmdeviceapi.h>

namespace velto {

class IAudioDeviceNotifyListener {
public:
    virtual ~IAudioDeviceNotifyListener() = default;

    // The default device for `flow` and `role` has changed. Called on a thread of the system's notification
    // service, so an implementation must return quickly. `deviceId` is valid during the call.
    virtual void OnAudioStateChanged(EDataFlow flow, ERole role, LPCWSTR deviceId) = 0;
};

} // namespace velto
