// Each write takes 30 ms: longer than the playing time of its unit.
// breaks: THR-4
// level: 5
// check: speaker.no-call-waits

#include <windows.h>

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.WriteStreamBuffer(id, idLength, unused, frame);

    Sleep(30);
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
