// A write reads one byte behind its unit.
// breaks: OWN-6
// level: 3

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.WriteStreamBuffer(id, idLength, unused, frame);

    if (result == VELTO_OK && frame->data != NULL && frame->header->size > 0) {
        (void)*(const volatile uint8_t *)(frame->data + frame->header->size);
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
