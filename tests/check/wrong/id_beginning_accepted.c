// An id is compared for as many bytes as the length says, so a shorter length is accepted.
// breaks: IDS-1
// level: 3

#include <string.h>

#include "forwarding_module.h"

static const char speaker[] = VELTO_ID_SPEAKER;

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    if (id != NULL && idLength <= strlen(speaker) && strncmp(id, speaker, idLength) == 0) {
        return real.SetAudioParameter(speaker, (uint32_t)strlen(speaker), unused1, unused2, parameters);
    }
    return real.SetAudioParameter(id, idLength, unused1, unused2, parameters);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->SetAudioParameter = SetAudioParameter;
}
