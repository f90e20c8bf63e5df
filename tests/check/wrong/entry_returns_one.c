// The entry returns 1 when it is called again.
// breaks: ENT-3
// level: 1

#include "forwarding_module.h"

static int entries;

int32_t VELTOGetAudioHandler(AudioHandlerTable *table)
{
    const int32_t result = ForwardEntry(table);

    return result == VELTO_OK && entries++ > 0 ? 1 : result;
}
