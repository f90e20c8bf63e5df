// The DLL stays loaded until the process ends.
// breaks: LIF-6
// level: 1

#include <windows.h>

#include "forwarding_module.h"

static const char here;

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID ending)
{
    HMODULE self;

    (void)instance;
    (void)ending;
    if (reason == DLL_PROCESS_ATTACH) {
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                           (LPCWSTR)&here, &self);
    }
    return TRUE;
}
