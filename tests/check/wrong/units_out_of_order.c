// Of each two units, the later one is played first.
// breaks: SPK-16
// level: 7
// heard: listen.watermark

#include <string.h>

#include "forwarding_module.h"

static uint8_t waiting[8191]; /* the most that the length field of ADTS allows */
static StreamFrameHeader waitingHeader;
static int isWaiting;

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    StreamFrame earlier = {waiting, {0}, &waitingHeader};

    if (id == NULL || strcmp(id, VELTO_ID_SPEAKER) != 0 || frame == NULL || frame->header == NULL ||
        frame->data == NULL || frame->header->size > sizeof(waiting)) {
        return real.WriteStreamBuffer(id, idLength, unused, frame);
    }
    isWaiting = !isWaiting;
    if (isWaiting) {
        memcpy(waiting, frame->data, frame->header->size);
        waitingHeader = *frame->header;
        return VELTO_OK;
    }
    real.WriteStreamBuffer(id, idLength, unused, frame);
    return real.WriteStreamBuffer(id, idLength, unused, &earlier);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
