#include "codec/audio_utils.h"

#include <windows.h>
#include <objbase.h>

COMLoadStatus AudioUtils::GetCOMLoadedStatus()
{
    const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (result == S_FALSE) {
        return COM_ALREADY_LOADED;
    }
    if (result == RPC_E_CHANGED_MODE) {
        return COM_OTHER_MODEL;
    }
    // Every success must be undone, even one that is not S_OK.
    return SUCCEEDED(result) ? COM_LOADED : COM_NOT_LOADED;
}

void AudioUtils::UnloadCOM(COMLoadStatus status)
{
    if (status == COM_LOADED || status == COM_ALREADY_LOADED) {
        CoUninitialize();
    }
}
