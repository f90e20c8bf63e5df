// A call shortens Windows' timer period and does not restore it.
// breaks: HYG-9
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    typedef LONG(WINAPI * SetResolution)(ULONG, BOOLEAN, ULONG *);
    const SetResolution setResolution =
        (SetResolution)(uintptr_t)GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtSetTimerResolution");
    ULONG current;

    setResolution(10000, TRUE, &current); /* 1 ms. Wine's timeBeginPeriod does nothing. */
}
