// The microphone opens without a list.
// breaks: MIC-13
// level: 3

#include "forwarding_module.h"

static int32_t OpenAudioRecord(const char *id, uint32_t idLength, void *unused1, void *unused2,
                               const AudioProfileList *parameters)
{
    static const AudioProfileList empty = {0, 0, NULL};

    return real.OpenAudioRecord(id, idLength, unused1, unused2, parameters != NULL ? parameters : &empty);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->OpenAudioRecord = OpenAudioRecord;
}
