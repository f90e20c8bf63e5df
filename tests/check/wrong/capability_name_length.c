// The length of the last name counts its terminator.
// breaks: CAP-7
// level: 2

#include "forwarding_module.h"

static int32_t GetAudioCapability(AudioCapabilityItem **list, uint32_t *count)
{
    const int32_t result = real.GetAudioCapability(list, count);

    if (result == VELTO_OK) {
        ++(*list)[3].nameLength;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->GetAudioCapability = GetAudioCapability;
}
