// The entry writes one byte behind the table. The byte keeps its value, so only an inaccessible page shows
// it.
// breaks: ENT-8
// level: 1

#include "forwarding_module.h"

int32_t VELTOGetAudioHandler(AudioHandlerTable *table)
{
    const int32_t result = ForwardEntry(table);

    if (result == VELTO_OK) {
        volatile uint8_t *behind = (volatile uint8_t *)(table + 1);
        *behind = *behind;
    }
    return result;
}
