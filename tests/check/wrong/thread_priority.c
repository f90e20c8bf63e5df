// A call raises the priority of the host's thread.
// breaks: HYG-3
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST);
}
