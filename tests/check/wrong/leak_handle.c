// Each list that is handed out loses a handle.
// breaks: RES-1
// level: 8
// check: lifecycle.calls-lose-nothing

#include <windows.h>

#include "forwarding_module.h"

static int32_t GetAudioCapability(AudioCapabilityItem **list, uint32_t *count)
{
    const int32_t result = real.GetAudioCapability(list, count);

    if (result == VELTO_OK) {
        const DWORD lastError = GetLastError();
        CreateEventW(NULL, FALSE, FALSE, NULL);
        SetLastError(lastError);
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->GetAudioCapability = GetAudioCapability;
}
