// A call writes the length of a key into the host's entry.
// breaks: OWN-10
// level: 4

#include <string.h>

#include "forwarding_module.h"

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    const int32_t result = real.SetAudioParameter(id, idLength, unused1, unused2, parameters);

    if (result == VELTO_OK && parameters->entries[0].key != NULL) {
        AudioProfileEntry *first = (AudioProfileEntry *)parameters->entries;
        first->keyLength = (uint32_t)strlen(first->key);
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
