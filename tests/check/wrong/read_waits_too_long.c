// In the first 20 s of a process, a read that may wait 2 ms waits at least 60 ms.
// breaks: MIC-4
// level: 6
// check: microphone.waits

#include <windows.h>

#include "forwarding_module.h"

#define BRIEF 384 /* bytes of sound in 2 ms */

static ULONGLONG loadedAt;

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    if (frame != NULL && frame->header != NULL && frame->header->size > 0 && frame->header->size <= BRIEF &&
        GetTickCount64() - loadedAt < 20000) {
        Sleep(60);
    }
    return real.ReadStreamBuffer(id, idLength, unused, frame);
}

void ChangeTable(AudioHandlerTable *table)
{
    loadedAt = GetTickCount64();
    table->ReadStreamBuffer = ReadStreamBuffer;
}
