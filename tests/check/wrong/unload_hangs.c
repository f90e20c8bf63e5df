// Unloading the DLL waits for ever.
// breaks: LIF-6
// level: 1

#include <windows.h>

#include "forwarding_module.h"

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID ending)
{
    (void)instance;
    if (reason == DLL_PROCESS_DETACH && ending == NULL) {
        Sleep(INFINITE);
    }
    return TRUE;
}
