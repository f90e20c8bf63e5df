// Closing is refused when nothing is open.
// breaks: MIC-14
// level: 3

#include "forwarding_module.h"

static int isOpen;

static int32_t OpenAudioRecord(const char *id, uint32_t idLength, void *unused1, void *unused2,
                               const AudioProfileList *parameters)
{
    const int32_t result = real.OpenAudioRecord(id, idLength, unused1, unused2, parameters);

    isOpen |= result == VELTO_OK;
    return result;
}

static int32_t CloseAudioRecord(const char *id, uint32_t idLength)
{
    const int wasOpen = isOpen;
    const int32_t result = real.CloseAudioRecord(id, idLength);

    isOpen &= result != VELTO_OK;
    return wasOpen ? result : VELTO_ERROR_INVALID;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->OpenAudioRecord = OpenAudioRecord;
    table->CloseAudioRecord = CloseAudioRecord;
}
