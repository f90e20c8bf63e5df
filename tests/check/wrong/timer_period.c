// A call shortens Windows' timer period and does not restore it.
// breaks: HYG-9
// level: 4

#include <windows.h>

#include <mmsystem.h>

#include "disturbance.h"

void Disturb(void)
{
    timeBeginPeriod(1);
}
