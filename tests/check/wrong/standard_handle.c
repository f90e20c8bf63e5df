// A call replaces the standard error handle.
// breaks: HYG-14
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    static HANDLE nothing;

    if (nothing == NULL) {
        nothing = CreateFileW(L"NUL", GENERIC_WRITE, 0, NULL, OPEN_EXISTING, 0, NULL);
        SetStdHandle(STD_ERROR_HANDLE, nothing);
    }
}
