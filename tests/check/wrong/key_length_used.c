// The end of a key is looked for at its length, which hosts may leave unset.
// breaks: OWN-7
// level: 3

#include "forwarding_module.h"

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    const int32_t result = real.SetAudioParameter(id, idLength, unused1, unused2, parameters);

    if (result == VELTO_OK) {
        const AudioProfileEntry *last = &parameters->entries[parameters->count - 1];
        (void)*(const volatile char *)(last->key + last->keyLength);
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
