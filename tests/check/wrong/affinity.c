// A call ties the host's thread to the first processor.
// breaks: HYG-15
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    SetThreadAffinityMask(GetCurrentThread(), 1);
}
