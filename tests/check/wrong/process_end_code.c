// The DLL changes the exit code of the process.
// breaks: LIF-3
// level: 7

#include <windows.h>

#include "forwarding_module.h"

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID ending)
{
    (void)instance;
    if (reason == DLL_PROCESS_DETACH && ending != NULL) {
        TerminateProcess(GetCurrentProcess(), 9);
    }
    return TRUE;
}
