// A parameter list is refused if its padding is not 0.
// breaks: OWN-5
// level: 3

#include "forwarding_module.h"

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    if (parameters != NULL && parameters->padding0 != 0) {
        return VELTO_ERROR_INVALID;
    }
    return real.SetAudioParameter(id, idLength, unused1, unused2, parameters);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
