// From the 21st write on, a thread reads the unit 20 ms later: the pointer to the host's buffer is kept.
// breaks: OWN-1
// level: 4

#include <windows.h>

#include "forwarding_module.h"

static DWORD WINAPI ReadLater(void *data)
{
    Sleep(20);
    (void)*(const volatile uint8_t *)data;
    return 0;
}

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    static LONG writes;
    const int32_t result = real.WriteStreamBuffer(id, idLength, unused, frame);

    if (result == VELTO_OK && frame->data != NULL && frame->header->size > 0 &&
        InterlockedIncrement(&writes) > 20) {
        CloseHandle(CreateThread(NULL, 0, ReadLater, frame->data, 0, NULL));
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
