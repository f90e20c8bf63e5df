// A list with a key of another version of the interface is refused.
// breaks: PAR-8
// level: 4

#include <string.h>

#include "forwarding_module.h"

static int IsKnown(const char *key)
{
    return key == NULL || strcmp(key, VELTO_KEY_SAMPLE_RATE) == 0 || strcmp(key, VELTO_KEY_CHANNEL) == 0 ||
           strcmp(key, VELTO_KEY_FORMAT) == 0 || strcmp(key, VELTO_KEY_CODEC) == 0;
}

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    uint32_t i;

    for (i = 0; parameters != NULL && parameters->entries != NULL && i < parameters->count; ++i) {
        if (!IsKnown(parameters->entries[i].key)) {
            return VELTO_ERROR_INVALID;
        }
    }
    return real.SetAudioParameter(id, idLength, unused1, unused2, parameters);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
