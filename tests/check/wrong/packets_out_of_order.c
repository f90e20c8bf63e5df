// Of each two packets, the later one is delivered first.
// breaks: MIC-16
// level: 7
// speak: speak.watermark

#include <string.h>

#include "read_packet.h"

static uint8_t kept[VELTO_PACKET_ROOM];
static uint32_t keptBytes; /* 0: none */
static int isNext;

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    int32_t result = VELTO_OK;
    uint32_t bytes;

    if (isNext && frame != NULL && frame->header != NULL && frame->data != NULL) {
        memcpy(frame->data, kept, keptBytes);
        frame->header->size = keptBytes;
        isNext = 0;
        keptBytes = 0;
        return result;
    }
    bytes = ReadPacket(id, idLength, unused, frame, &result);
    if (bytes > 0 && keptBytes == 0) {
        memcpy(kept, frame->data, bytes);
        keptBytes = bytes;
        frame->header->size = 0;
    } else if (bytes > 0) {
        isNext = 1;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
