// The padding of the host's parameter list is set to 0.
// breaks: OWN-10
// level: 4

#include "forwarding_module.h"

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    const int32_t result = real.SetAudioParameter(id, idLength, unused1, unused2, parameters);

    if (result == VELTO_OK && parameters->padding0 != 0) {
        ((AudioProfileList *)parameters)->padding0 = 0;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
