// Every 200th unit is dropped.
// breaks: SPK-16
// level: 7
// heard: listen.watermark

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    static int units;

    if (frame != NULL && frame->header != NULL && ++units % 200 == 0) {
        return VELTO_OK;
    }
    return real.WriteStreamBuffer(id, idLength, unused, frame);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
