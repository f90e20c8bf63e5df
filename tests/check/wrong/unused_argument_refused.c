// An argument that has no use is refused unless it is null.
// breaks: OWN-8
// level: 3

#include "forwarding_module.h"

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    if (unused1 != NULL) {
        return VELTO_ERROR_INVALID;
    }
    return real.SetAudioParameter(id, idLength, unused1, unused2, parameters);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
