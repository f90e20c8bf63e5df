// A null argument is answered with -3.
// breaks: CAP-3
// level: 2

#include "forwarding_module.h"

static int32_t GetAudioCapability(AudioCapabilityItem **list, uint32_t *count)
{
    const int32_t result = real.GetAudioCapability(list, count);

    return result == VELTO_ERROR_INVALID ? VELTO_ERROR_NULL_POINTER : result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->GetAudioCapability = GetAudioCapability;
}
