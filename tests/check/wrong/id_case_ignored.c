// "SPEAKER1" is taken for "speaker1".
// breaks: IDS-2
// level: 7
// heard: listen.other-ids-are-not-heard

#include <string.h>

#include "forwarding_module.h"

static int32_t WriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int isSpeaker = id != NULL && strlen(id) == idLength && _stricmp(id, VELTO_ID_SPEAKER) == 0;

    return real.WriteStreamBuffer(isSpeaker ? VELTO_ID_SPEAKER : id, idLength, unused, frame);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->WriteStreamBuffer = WriteStreamBuffer;
}
