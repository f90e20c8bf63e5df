// The entry starts a thread.
// breaks: ENT-5
// level: 1

#include <windows.h>

#include "forwarding_module.h"

static DWORD WINAPI Wait(void *unused)
{
    (void)unused;
    Sleep(INFINITE);
    return 0;
}

void ChangeTable(AudioHandlerTable *table)
{
    (void)table;
    CloseHandle(CreateThread(NULL, 0, Wait, NULL, 0, NULL));
}
