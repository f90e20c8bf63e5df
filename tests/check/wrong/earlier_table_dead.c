// The functions of a table work until the entry is called again.
// breaks: ENT-10
// level: 1

#include "forwarding_module.h"

static int entries;

static int32_t CloseOfFirstTable(const char *id, uint32_t idLength)
{
    return entries == 1 ? real.CloseAudioTrack(id, idLength) : VELTO_ERROR_INVALID;
}

void ChangeTable(AudioHandlerTable *table)
{
    if (++entries == 1) {
        table->CloseAudioTrack = CloseOfFirstTable;
    }
}
