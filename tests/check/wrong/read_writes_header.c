// A read writes a field behind the size.
// breaks: OWN-3
// level: 4

#include "forwarding_module.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.ReadStreamBuffer(id, idLength, unused, frame);

    if (result == VELTO_OK) {
        frame->header->reserved ^= 0xFF;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
