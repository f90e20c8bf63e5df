// A call changes the current folder.
// breaks: HYG-6
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    SetCurrentDirectoryW(L"C:\\");
}
