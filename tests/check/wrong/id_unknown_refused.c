// An id that names no speaker is refused.
// breaks: IDS-3
// level: 3

#include <string.h>

#include "forwarding_module.h"

static int32_t CloseAudioTrack(const char *id, uint32_t idLength)
{
    const int32_t result = real.CloseAudioTrack(id, idLength);
    const int isKnown =
        id != NULL && (strcmp(id, VELTO_ID_SPEAKER) == 0 || strcmp(id, VELTO_ID_MODEM_SPEAKER) == 0);

    return isKnown ? result : VELTO_ERROR_INVALID;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->CloseAudioTrack = CloseAudioTrack;
}
