#include "codec/audio_utils.h"

#include <windows.h>
#include <objbase.h>

COMLoadStatus AudioUtils::GetCOMLoadedStatus()
{
    switch (CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {
    case S_OK:
        return COM_LOADED;
    case S_FALSE:
        return COM_ALREADY_LOADED;
    case RPC_E_CHANGED_MODE:
        return COM_OTHER_MODEL;
    default:
        return COM_NOT_LOADED;
    }
}

void AudioUtils::UnloadCOM(COMLoadStatus status)
{
    if (status == COM_LOADED || status == COM_ALREADY_LOADED) {
        CoUninitialize();
    }
}
