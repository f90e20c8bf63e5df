// Each accepted list of parameters loses 4 KiB of memory.
// breaks: RES-1
// level: 8
// check: lifecycle.calls-lose-nothing

#include <stdlib.h>

#include "forwarding_module.h"

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    const int32_t result = real.SetAudioParameter(id, idLength, unused1, unused2, parameters);

    if (result == VELTO_OK) {
        volatile char *lost = malloc(4096);
        if (lost != NULL) {
            lost[0] = 1; /* the compiler removes an allocation without use */
        }
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
