// Each packet is delivered twice.
// breaks: MIC-16
// level: 6
// check: microphone.packets

#include <string.h>

#include "read_packet.h"

static uint8_t kept[VELTO_PACKET_ROOM];
static uint32_t keptBytes; /* 0: none */

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    int32_t result = VELTO_OK;

    if (keptBytes > 0 && frame != NULL && frame->header != NULL && frame->data != NULL) {
        memcpy(frame->data, kept, keptBytes);
        frame->header->size = keptBytes;
        keptBytes = 0;
        return result;
    }
    keptBytes = ReadPacket(id, idLength, unused, frame, &result);
    if (keptBytes > 0) {
        memcpy(kept, frame->data, keptBytes);
    }
    return result;
}

static int32_t CloseAudioRecord(const char *id, uint32_t idLength)
{
    keptBytes = 0;
    return real.CloseAudioRecord(id, idLength);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
    table->CloseAudioRecord = CloseAudioRecord;
}
