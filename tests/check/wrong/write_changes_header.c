// A write changes the frame's header.
// breaks: OWN-2
// level: 4

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.WriteStreamBuffer(id, idLength, unused, frame);

    if (result == VELTO_OK) {
        frame->header->reserved = 1;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
