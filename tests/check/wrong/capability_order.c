// The list begins with the speaker for calls.
// breaks: CAP-1
// level: 2

#include "forwarding_module.h"

static int32_t GetAudioCapability(AudioCapabilityItem **list, uint32_t *count)
{
    const int32_t result = real.GetAudioCapability(list, count);

    if (result == VELTO_OK) {
        const AudioCapabilityItem first = (*list)[0];
        (*list)[0] = (*list)[1];
        (*list)[1] = first;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->GetAudioCapability = GetAudioCapability;
}
