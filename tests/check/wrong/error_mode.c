// A call changes the error mode of the process.
// breaks: HYG-7
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    SetErrorMode(GetErrorMode() ^ SEM_FAILCRITICALERRORS);
}
