// The first write starts two threads more than the contract allows.
// breaks: RES-2
// level: 5
// check: lifecycle.first-write-starts-speakers

#include <windows.h>

#include "forwarding_module.h"

static LONG writes;

static DWORD WINAPI Wait(void *unused)
{
    (void)unused;
    Sleep(INFINITE);
    return 0;
}

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    if (InterlockedIncrement(&writes) == 1) {
        CloseHandle(CreateThread(NULL, 0, Wait, NULL, 0, NULL));
        CloseHandle(CreateThread(NULL, 0, Wait, NULL, 0, NULL));
    }
    return real.WriteStreamBuffer(id, idLength, unused, frame);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
