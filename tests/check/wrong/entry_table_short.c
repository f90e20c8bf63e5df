// The entry leaves the last slot as it was when it is called again.
// breaks: ENT-3
// level: 1

#include <string.h>

#include "forwarding_module.h"

static int entries;

int32_t VELTOGetAudioHandler(AudioHandlerTable *table)
{
    AudioHandlerTable filled;
    const int32_t result = ForwardEntry(table == NULL ? NULL : &filled);

    if (result == VELTO_OK) {
        memcpy(table, &filled, entries++ == 0 ? sizeof(filled) : offsetof(AudioHandlerTable, NoOperation10));
    }
    return result;
}
