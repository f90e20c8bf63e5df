// One byte behind the terminator of an id is read.
// breaks: IDS-5
// level: 3

#include <string.h>

#include "forwarding_module.h"

static int32_t CloseAudioTrack(const char *id, uint32_t idLength)
{
    if (id != NULL) {
        (void)*(const volatile char *)(id + strlen(id) + 1);
    }
    return real.CloseAudioTrack(id, idLength);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->CloseAudioTrack = CloseAudioTrack;
}
