// A call sets an environment variable.
// breaks: HYG-12
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    SetEnvironmentVariableW(L"VELTO_WRONG", L"1");
}
