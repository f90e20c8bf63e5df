// A call enters a COM apartment and does not leave it.
// breaks: HYG-1
// level: 4

#include <windows.h>

#include <objbase.h>

#include "disturbance.h"

void Disturb(void)
{
    CoInitializeEx(NULL, COINIT_MULTITHREADED);
}
