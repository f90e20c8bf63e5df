// The length that is passed with an id is not compared.
// breaks: IDS-1
// level: 3

#include <string.h>

#include "forwarding_module.h"

static int32_t CloseAudioTrack(const char *id, uint32_t idLength)
{
    return real.CloseAudioTrack(id, id != NULL ? (uint32_t)strlen(id) : idLength);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->CloseAudioTrack = CloseAudioTrack;
}
