// A call replaces the filter for unhandled exceptions.
// breaks: HYG-8
// level: 4

#include <windows.h>

#include "disturbance.h"

static LONG WINAPI Ignore(EXCEPTION_POINTERS *exception)
{
    (void)exception;
    return EXCEPTION_CONTINUE_SEARCH;
}

void Disturb(void)
{
    SetUnhandledExceptionFilter(Ignore);
}
