#include <windows.h>

#include "support/process_state.h"

// At unload, runs before the module's static destructors, which need to know whether the process is ending.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_DETACH && reserved != nullptr) {
        velto::SetProcessIsEnding();
    }
    return TRUE;
}
