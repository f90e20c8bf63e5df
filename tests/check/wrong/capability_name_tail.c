// A name is not followed by zeros.
// breaks: CAP-7
// level: 2

#include "forwarding_module.h"

static int32_t GetAudioCapability(AudioCapabilityItem **list, uint32_t *count)
{
    const int32_t result = real.GetAudioCapability(list, count);

    if (result == VELTO_OK) {
        (*list)[0].name[63] = '!';
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->GetAudioCapability = GetAudioCapability;
}
