// A read waits until there is a packet, also when no recording is open.
// breaks: MIC-3 THR-3
// level: 3
// check: arguments.without-recording

#include <windows.h>

#include "read_packet.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    uint32_t asked;
    int32_t result;

    if (frame == NULL || frame->header == NULL) {
        return real.ReadStreamBuffer(id, idLength, unused, frame);
    }
    asked = frame->header->size;
    while (ReadPacket(id, idLength, unused, frame, &result) == 0 && result == VELTO_OK) {
        frame->header->size = asked;
        Sleep(1);
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
