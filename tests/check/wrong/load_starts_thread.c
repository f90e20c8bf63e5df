// Loading the DLL starts a thread.
// breaks: LIF-6
// level: 1

#include <windows.h>

#include "forwarding_module.h"

static DWORD WINAPI Wait(void *unused)
{
    (void)unused;
    Sleep(INFINITE);
    return 0;
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID ending)
{
    (void)instance;
    (void)ending;
    if (reason == DLL_PROCESS_ATTACH) {
        CloseHandle(CreateThread(NULL, 0, Wait, NULL, 0, NULL));
    }
    return TRUE;
}
