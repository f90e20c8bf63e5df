// A recording begins with the last packet of the earlier one.
// breaks: MIC-15
// level: 6

#include <string.h>

#include "read_packet.h"

static uint8_t kept[VELTO_PACKET_ROOM];
static uint32_t keptBytes;
static int begins;

static int32_t OpenAudioRecord(const char *id, uint32_t idLength, void *unused1, void *unused2,
                               const AudioProfileList *parameters)
{
    const int32_t result = real.OpenAudioRecord(id, idLength, unused1, unused2, parameters);

    begins = result == VELTO_OK && keptBytes > 0;
    return result;
}

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    int32_t result = VELTO_OK;
    uint32_t bytes;

    if (begins && frame != NULL && frame->header != NULL && frame->data != NULL) {
        memcpy(frame->data, kept, keptBytes);
        frame->header->size = keptBytes;
        begins = 0;
        return result;
    }
    bytes = ReadPacket(id, idLength, unused, frame, &result);
    if (bytes > 0) {
        memcpy(kept, frame->data, bytes);
        keptBytes = bytes;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->OpenAudioRecord = OpenAudioRecord;
    table->ReadStreamBuffer = ReadStreamBuffer;
}
