#include "disturbance.h"

#include <windows.h>

#include "forwarding_module.h"

static int32_t CloseAudioTrack(const char *id, uint32_t idLength)
{
    const int32_t result = real.CloseAudioTrack(id, idLength);
    const DWORD lastError = GetLastError();

    Disturb();
    SetLastError(lastError);
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->CloseAudioTrack = CloseAudioTrack;
}
