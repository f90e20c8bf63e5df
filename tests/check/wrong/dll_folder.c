// A call changes the folder of SetDllDirectory.
// breaks: HYG-13
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    SetDllDirectoryW(L"C:\\windows");
}
