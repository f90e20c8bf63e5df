// A call raises the priority class of the process.
// breaks: HYG-3
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    SetPriorityClass(GetCurrentProcess(), ABOVE_NORMAL_PRIORITY_CLASS);
}
