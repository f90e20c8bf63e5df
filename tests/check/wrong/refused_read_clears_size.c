// A read that is refused sets the size to 0.
// breaks: OWN-9
// level: 4

#include "forwarding_module.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.ReadStreamBuffer(id, idLength, unused, frame);

    if (result != VELTO_OK && frame != NULL && frame->header != NULL) {
        frame->header->size = 0;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
