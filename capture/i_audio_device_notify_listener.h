// Who wants to know about changes of the system's default devices.
#pragma once

#include <windows.h>
#include <mmdeviceapi.h>

namespace velto {

class IAudioDeviceNotifyListener {
public:
    virtual ~IAudioDeviceNotifyListener() = default;

    // The default device of a flow and a role is another one now. Called on a thread of the
    // system's notification service, which must be let go at once; `deviceId` is valid meanwhile.
    virtual void OnAudioStateChanged(EDataFlow flow, ERole role, LPCWSTR deviceId) = 0;
};

} // namespace velto
