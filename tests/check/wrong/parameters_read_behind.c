// The entry behind the last one of a parameter list is read.
// breaks: OWN-7
// level: 3

#include "forwarding_module.h"

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    const int32_t result = real.SetAudioParameter(id, idLength, unused1, unused2, parameters);

    if (result == VELTO_OK) {
        (void)*(const volatile uint32_t *)&parameters->entries[parameters->count].value;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
