// A read without a frame is answered with -2000 instead of -3.
// breaks: MIC-6
// level: 3

#include "forwarding_module.h"

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.ReadStreamBuffer(id, idLength, unused, frame);

    return result == VELTO_ERROR_NULL_POINTER ? VELTO_ERROR_INVALID : result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->ReadStreamBuffer = ReadStreamBuffer;
}
