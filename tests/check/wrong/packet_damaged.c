// Every 130th packet begins with a wrong bit.
// breaks: MIC-2
// level: 6

#include "read_packet.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    int32_t result;

    if (ReadPacket(id, idLength, unused, frame, &result) > 0 && IsRarePacket()) {
        frame->data[0] ^= 0x40; /* another element of AAC than a pair of channels */
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
