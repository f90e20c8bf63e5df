// A call replaces the C runtime's handler of aborts.
// breaks: HYG-11
// level: 4

#include <signal.h>

#include "disturbance.h"

void Disturb(void)
{
    signal(SIGABRT, SIG_IGN);
}
