// A call replaces the standard error handle.
// breaks: HYG-14
// level: 4

#include <windows.h>

#include "disturbance.h"

void Disturb(void)
{
    SetStdHandle(STD_ERROR_HANDLE, GetStdHandle(STD_INPUT_HANDLE));
}
