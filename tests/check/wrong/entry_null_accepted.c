// The entry accepts a null table.
// breaks: ENT-2
// level: 1

#include "forwarding_module.h"

int32_t VELTOGetAudioHandler(AudioHandlerTable *table)
{
    return table == NULL ? VELTO_OK : ForwardEntry(table);
}
