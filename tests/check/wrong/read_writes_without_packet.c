// A read that delivers nothing writes the first byte of the buffer.
// breaks: OWN-3
// level: 4

#include "forwarding_module.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.ReadStreamBuffer(id, idLength, unused, frame);

    if (result == VELTO_OK && frame->header->size == 0) {
        frame->data[0] ^= 0xFF;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
