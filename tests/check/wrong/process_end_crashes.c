// The DLL crashes at the end of the process.
// breaks: LIF-3
// level: 7

#include <windows.h>

#include "forwarding_module.h"

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID ending)
{
    (void)instance;
    if (reason == DLL_PROCESS_DETACH && ending != NULL) {
        volatile int *volatile nowhere = NULL;
        *nowhere = 0;
    }
    return TRUE;
}
