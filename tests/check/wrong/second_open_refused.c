// Opening is refused while a recording is open.
// breaks: MIC-8
// level: 6

#include <string.h>

#include "forwarding_module.h"

static int isOpen;

static int32_t OpenAudioRecord(const char *id, uint32_t idLength, void *unused1, void *unused2,
                               const AudioProfileList *parameters)
{
    int32_t result;

    if (isOpen && id != NULL && strlen(id) == idLength && parameters != NULL) {
        return VELTO_ERROR_INVALID;
    }
    result = real.OpenAudioRecord(id, idLength, unused1, unused2, parameters);
    isOpen |= result == VELTO_OK;
    return result;
}

static int32_t CloseAudioRecord(const char *id, uint32_t idLength)
{
    const int32_t result = real.CloseAudioRecord(id, idLength);

    isOpen &= result != VELTO_OK;
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->OpenAudioRecord = OpenAudioRecord;
    table->CloseAudioRecord = CloseAudioRecord;
}
