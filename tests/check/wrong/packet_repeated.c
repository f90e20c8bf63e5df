// Each packet is delivered four times.
// breaks: MIC-16
// level: 6
// check: microphone.packets

#include <string.h>

#include "read_packet.h"

static uint8_t kept[VELTO_PACKET_ROOM];
static uint32_t keptBytes;
static uint32_t timesLeft; /* that the kept packet is delivered again */

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    int32_t result = VELTO_OK;

    if (timesLeft > 0 && frame != NULL && frame->header != NULL && frame->data != NULL) {
        memcpy(frame->data, kept, keptBytes);
        frame->header->size = keptBytes;
        --timesLeft;
        return result;
    }
    keptBytes = ReadPacket(id, idLength, unused, frame, &result);
    if (keptBytes > 0) {
        memcpy(kept, frame->data, keptBytes);
        timesLeft = 3;
    }
    return result;
}

static int32_t CloseAudioRecord(const char *id, uint32_t idLength)
{
    timesLeft = 0;
    return real.CloseAudioRecord(id, idLength);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
    table->CloseAudioRecord = CloseAudioRecord;
}
