// A call changes the last error.
// breaks: HYG-1
// level: 4

#include <windows.h>

#include "forwarding_module.h"

static int32_t CloseAudioTrack(const char *id, uint32_t idLength)
{
    const int32_t result = real.CloseAudioTrack(id, idLength);

    SetLastError(ERROR_ACCESS_DENIED);
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->CloseAudioTrack = CloseAudioTrack;
}
