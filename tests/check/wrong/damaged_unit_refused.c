// A unit that is no AAC is answered with -1 instead of 0.
// breaks: SPK-6
// level: 5

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.WriteStreamBuffer(id, idLength, unused, frame);

    if (result == VELTO_OK && frame->data != NULL && frame->header->size > 0) {
        const uint8_t first = frame->data[0];
        /* an ADTS header, a pair of channels, or a fill element */
        return first == 0xFF || first >> 5 == 1 || first >> 5 == 6 ? VELTO_OK : -1;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
