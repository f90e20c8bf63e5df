// Only the ids of the microphones open the microphone.
// breaks: IDS-4
// level: 6

#include <string.h>

#include "forwarding_module.h"

static int32_t OpenAudioRecord(const char *id, uint32_t idLength, void *unused1, void *unused2,
                               const AudioProfileList *parameters)
{
    if (id != NULL && strlen(id) == idLength && parameters != NULL && strcmp(id, VELTO_ID_MIC) != 0 &&
        strcmp(id, VELTO_ID_MODEM_MIC) != 0) {
        return VELTO_OK;
    }
    return real.OpenAudioRecord(id, idLength, unused1, unused2, parameters);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->OpenAudioRecord = OpenAudioRecord;
}
