// A write without a frame is answered with -3 instead of -2000.
// breaks: SPK-15
// level: 3

#include <string.h>

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.WriteStreamBuffer(id, idLength, unused, frame);
    const int lacksFrame = frame == NULL || frame->header == NULL;

    return lacksFrame && id != NULL && strlen(id) == idLength ? VELTO_ERROR_NULL_POINTER : result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
