// The stream type of a frame is not stored.
// breaks: SPK-9
// level: 5
// check: lifecycle.stream-type

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    StreamFrameHeader header;
    StreamFrame without;

    if (frame == NULL || frame->header == NULL) {
        return real.WriteStreamBuffer(id, idLength, unused, frame);
    }
    header = *frame->header;
    header.streamType = 0;
    without = *frame;
    without.header = &header;
    return real.WriteStreamBuffer(id, idLength, unused, &without);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
