// Every 130th packet has an ADTS header.
// breaks: MIC-2
// level: 6

#include <string.h>

#include "read_packet.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    static const uint8_t header[7] = {0xFF, 0xF1, 0x4C, 0x80, 0x00, 0x1F, 0xFC};
    int32_t result;
    const uint32_t bytes = ReadPacket(id, idLength, unused, frame, &result);

    if (bytes > 0 && bytes + sizeof(header) <= VELTO_MAX_PACKET_BYTES && IsRarePacket()) {
        const uint32_t all = bytes + (uint32_t)sizeof(header);

        memmove(frame->data + sizeof(header), frame->data, bytes);
        memcpy(frame->data, header, sizeof(header));
        frame->data[3] |= (uint8_t)(all >> 11);
        frame->data[4] = (uint8_t)(all >> 3);
        frame->data[5] |= (uint8_t)(all << 5);
        frame->header->size = all;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
