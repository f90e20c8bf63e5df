// A write of a frame with a null id does not start the speakers.
// breaks: SPK-1
// level: 5
// check: lifecycle.first-write-starts-speakers

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    if (id == NULL && frame != NULL) {
        return VELTO_ERROR_INVALID;
    }
    return real.WriteStreamBuffer(id, idLength, unused, frame);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
