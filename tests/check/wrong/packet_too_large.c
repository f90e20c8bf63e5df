// Every 130th packet is reported with more bytes than a buffer has to hold.
// breaks: MIC-2
// level: 6

#include "read_packet.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    int32_t result;

    if (ReadPacket(id, idLength, unused, frame, &result) > 0 && IsRarePacket()) {
        frame->header->size = VELTO_MAX_PACKET_BYTES + 1;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
