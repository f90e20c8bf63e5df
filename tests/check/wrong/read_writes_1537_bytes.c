// The read of every 130th packet writes a byte behind the 1536 of the buffer.
// breaks: OWN-3
// level: 6

#include "read_packet.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    int32_t result;

    if (ReadPacket(id, idLength, unused, frame, &result) > 0 && IsRarePacket()) {
        frame->data[VELTO_MAX_PACKET_BYTES] = 0;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
