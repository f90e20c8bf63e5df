// After 130 packets, closing the microphone never returns.
// breaks: MIC-7
// level: 6
// check: microphone.packets

#include <windows.h>

#include "read_packet.h"

static int hangs;

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    int32_t result;

    hangs |= ReadPacket(id, idLength, unused, frame, &result) > 0 && IsRarePacket();
    return result;
}

static int32_t CloseAudioRecord(const char *id, uint32_t idLength)
{
    const int32_t result = real.CloseAudioRecord(id, idLength);

    if (hangs && result == VELTO_OK) {
        Sleep(INFINITE);
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
    table->CloseAudioRecord = CloseAudioRecord;
}
