// An empty parameter list is accepted.
// breaks: PAR-1
// level: 3

#include <string.h>

#include "forwarding_module.h"

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    if (id != NULL && strlen(id) == idLength && parameters != NULL && parameters->count == 0) {
        return VELTO_OK;
    }
    return real.SetAudioParameter(id, idLength, unused1, unused2, parameters);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
