// A raw unit of silence is refused, because it is shorter than an ADTS header.
// breaks: SPK-3
// level: 5
// check: speaker.raw-units

#include <string.h>

#include "forwarding_module.h"

static const uint8_t silence[] = VELTO_SILENT_UNIT;

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.WriteStreamBuffer(id, idLength, unused, frame);

    if (result == VELTO_OK && frame->data != NULL && frame->header->size == sizeof(silence) &&
        memcmp(frame->data, silence, sizeof(silence)) == 0) {
        return VELTO_ERROR_INVALID;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
